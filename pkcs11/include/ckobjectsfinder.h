// Searching a token's objects and reading their attributes.
#pragma once

#include "ckattributes.h"
#include "cksession.h"
#include "cktypes.h"

#include <array>
#include <cstddef>
#include <iterator>

namespace pkcs11 {

/// An object of a token, as a session sees it. The session must live as long as it is used.
class CkObject {
public:
    CkObject(const CkSession& session, CkUlong handle) noexcept
        : session_(&session), handle_(handle) {}

    /// PKCS #11 C_GetAttributeValue: fills the values that have room and sets the length of all.
    /// \throws Pkcs11Error_CryptokiError with the module's answer, whatever it could read; "19"
    ///   if it claims to have filled more than the room of a value
    void get(CkAttributes& attributes) const;

    /// CK_OBJECT_HANDLE
    CkUlong handle() const noexcept { return handle_; }

private:
    const CkSession* session_;
    CkUlong handle_;
};

class CkObjectsFinder;

/// Walks the objects of a search that was begun, fetching up to 64 at a time
/// (PKCS #11 C_FindObjects). The walk ends at the first answer without an object.
class CkObjectsFinderIterator {
public:
    using value_type = CkObject;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::input_iterator_tag;

    /// Fetches the first objects. The finder must outlive the iterator.
    /// \throws Pkcs11Error_CryptokiError with the module's answer; "5" if it gives more objects
    ///   than it was asked for, or never comes to an end
    explicit CkObjectsFinderIterator(const CkObjectsFinder& finder);

    CkObject operator*() const noexcept;
    /// \throws as the constructor
    CkObjectsFinderIterator& operator++();
    void operator++(int) { ++*this; }

    friend bool operator==(const CkObjectsFinderIterator& iterator,
                           std::default_sentinel_t) noexcept {
        return iterator.fetched_ == 0;
    }

private:
    static constexpr std::size_t batchSize = 64;
    /// A module that never ends a search must not keep us for ever. No token holds a fraction
    /// of this number of objects.
    static constexpr std::size_t maxObjects = 1'048'576;

    void fetch();

    const CkObjectsFinder* finder_;
    std::array<CkUlong, batchSize> handles_{};
    std::size_t fetched_ = 0;
    std::size_t position_ = 0;
    std::size_t total_ = 0;
};

/// A search for objects. PKCS #11 allows one at a time in a session; one that was begun and not
/// ended ends with the finder, whatever the module answers then.
class CkObjectsFinder {
public:
    /// \param session must be open and outlive the finder
    explicit CkObjectsFinder(const CkSession& session) noexcept : session_(session) {}
    ~CkObjectsFinder();
    CkObjectsFinder(const CkObjectsFinder&) = delete;
    CkObjectsFinder& operator=(const CkObjectsFinder&) = delete;

    /// PKCS #11 C_FindObjectsInit: begins the search for all objects that have these attributes.
    /// \throws Pkcs11Error_CryptokiError with the module's answer
    void init(const CkAttributes& searchTemplate);
    /// PKCS #11 C_FindObjectsFinal; nothing if no search was begun. The search counts as ended
    /// even if the module failed to end it.
    /// \throws Pkcs11Error_CryptokiError with the module's answer
    void final();

    CkObjectsFinderIterator begin() const { return CkObjectsFinderIterator(*this); }
    std::default_sentinel_t end() const noexcept { return std::default_sentinel; }

private:
    friend class CkObjectsFinderIterator;

    const CkSession& session_;
    bool active_ = false;
};

} // namespace pkcs11
