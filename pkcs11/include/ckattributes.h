// An attribute template: what to search for, or what to read.
#pragma once

#include "buffer.h"
#include "cktypes.h"
#include "pkcs11error.h"

#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace pkcs11 {

using buffer::BufferRange;

/// An ordered list of attributes (PKCS #11 CK_ATTRIBUTE) that owns its values.
///
/// A value is absent (no pointer) or present; a present one may be empty. To read attributes add
/// their types, call `CkObject::get` for the lengths, `allocateValues`, and `get` again.
///
/// Errors are Pkcs11Error_CryptokiError: "209" for a type that is added twice, "18" for a type
/// that was not added, "19" for a value that cannot be used.
class CkAttributes {
public:
    struct Entry {
        CkUlong type;
        std::unique_ptr<unsigned char[]> value; ///< null while the value is absent
        CkUlong capacity = 0;                   ///< bytes that `value` has room for
        CkUlong length = 0;                     ///< ulValueLen, as set or as the module gave it
    };

    /// The longest value that is read. Certificates, ids and labels stay far below; a module
    /// that claims more is not believed, lest it make us allocate whatever it likes.
    static constexpr CkUlong maxValueLength = 16ul * 1024 * 1024;

    CkAttributes() = default;
    CkAttributes(CkAttributes&&) = default;
    CkAttributes& operator=(CkAttributes&&) = default;

    /// Adds an attribute without a value behind the others.
    void add(CkUlong type) {
        if (positions_.contains(type))
            throw cryptokiError(sourceFile, ckr::templateInconsistent);
        entries_.push_back(Entry{type, nullptr});
        try {
            positions_.emplace(type, entries_.size() - 1);
        } catch (...) {
            entries_.pop_back();
            throw;
        }
    }

    /// Copies the bytes into the template.
    void setValue(CkUlong type, BufferRange<unsigned char> bytes) {
        setBytes(find(type), bytes.data(), bytes.size());
    }

    /// Adds an attribute with a CK_ULONG as its value.
    void addNumber(CkUlong type, CkUlong number) {
        add(type);
        setBytes(entries_.back(), &number, sizeof(number));
    }
    /// Adds an attribute with a CK_BBOOL as its value.
    void addBool(CkUlong type, bool truth) {
        add(type);
        const unsigned char byte = truth ? 1 : 0;
        setBytes(entries_.back(), &byte, sizeof(byte));
    }

    /// Gives each attribute room for a value of exactly the length that the module returned for
    /// it. A length of 0 gets none: that value stays absent.
    void allocateValues() {
        for (Entry& entry : entries_) {
            // This refuses CK_UNAVAILABLE_INFORMATION, -1, too.
            if (entry.length > maxValueLength)
                throw cryptokiError(sourceFile, ckr::attributeValueInvalid);
            if (entry.length != 0)
                allocate(entry, entry.length);
        }
    }

    /// Takes a length that the module returned. One that exceeds the room that the module was
    /// given is refused: what lies behind that room is not its value.
    void setReturnedLength(std::size_t position, CkUlong length) {
        Entry& entry = entries_[position];
        if (entry.value && length > entry.capacity)
            throw cryptokiError(sourceFile, ckr::attributeValueInvalid);
        entry.length = length;
    }

    /// The bytes of a value; a null range for an absent one. They belong to the template and
    /// live until the value is set or allocated again.
    BufferRange<unsigned char> value(CkUlong type) const {
        const Entry& entry = find(type);
        if (!entry.value && entry.length != 0)
            throw cryptokiError(sourceFile, ckr::attributeValueInvalid);
        return BufferRange<unsigned char>(entry.value.get(), std::size_t{entry.length});
    }

    /// In the order in which they were added.
    const std::vector<Entry>& entries() const noexcept { return entries_; }

private:
    static constexpr wchar_t sourceFile[] = L"pkcs11\\include\\ckattributes.h";

    const Entry& find(CkUlong type) const {
        const auto position = positions_.find(type);
        if (position == positions_.end())
            throw cryptokiError(sourceFile, ckr::attributeTypeInvalid);
        return entries_[position->second];
    }
    Entry& find(CkUlong type) { return const_cast<Entry&>(std::as_const(*this).find(type)); }

    static void setBytes(Entry& entry, const void* bytes, std::size_t size) {
        if (size > maxValueLength)
            throw cryptokiError(sourceFile, ckr::attributeValueInvalid);
        allocate(entry, static_cast<CkUlong>(size));
        if (size != 0)
            std::memcpy(entry.value.get(), bytes, size);
    }

    // Zeroed, so that a module that fills less than it claims leaves no old memory in the value.
    static void allocate(Entry& entry, CkUlong size) {
        entry.value = std::make_unique<unsigned char[]>(size);
        entry.capacity = size;
        entry.length = size;
    }

    std::vector<Entry> entries_;
    std::map<CkUlong, std::size_t> positions_;
};

} // namespace pkcs11
