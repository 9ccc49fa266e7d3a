// What all ASN.1 values have in common.
#pragma once

#include "asn1error.h"
#include "octets.h"

#include <cstdint>

namespace asn1 {

struct Type;

/// How `Asn1::cmp` matches values.
enum class Amatch : int {
    exact = 0, ///< types and values are the same; a PrintableString never equals a UTF8String
};

/// A value of an ASN.1 type, or the lack of one. Values are copied freely; what was decoded
/// shares the bytes that it was decoded from.
class CERTSTOREUPDATER_API Asn1 {
public:
    virtual ~Asn1();

    /// The description of the value's type, a constant.
    virtual const Type& type() const noexcept = 0;

    /// Compares values, not how they came to be: 0 if they are equal; otherwise a negative or
    /// positive number that orders them. An absent member with a DEFAULT has that value.
    /// \throws QuorError_Asn1_InvalidCall with "CAUSE" = "UnknownMatchMode"
    std::int16_t cmp(const Asn1& other, Amatch mode) const;

protected:
    Asn1() noexcept = default;
    Asn1(const Asn1&) noexcept = default;
    Asn1(Asn1&&) noexcept = default;
    Asn1& operator=(const Asn1&) noexcept = default;
    Asn1& operator=(Asn1&&) noexcept = default;
};

/// A value that is held as the contents octets of its DER encoding: all primitive types,
/// SEQUENCE OF and SET OF.
class CERTSTOREUPDATER_API ContentsValue : public Asn1 {
public:
    bool hasValue() const noexcept { return !contents_.isNull(); } ///< whether it was set
    /// Contents octets of the DER encoding; empty without a value.
    BufferRange<unsigned char> contents() const noexcept { return contents_.range(); }
    const Octets& contentsOctets() const noexcept { return contents_; } ///< the same, shared

    /// Contents that are valid for the type already; anything else gives undefined values.
    virtual void assignContents(Octets contents) { contents_ = std::move(contents); }

protected:
    ContentsValue() noexcept = default;

    /// \throws QuorError_Asn1_UnsetValue with "TYPE" = the type's name
    BufferRange<unsigned char> contentsOrThrow() const;

    Octets contents_;
};

/// A value that is held as its whole DER encoding.
class CERTSTOREUPDATER_API EncodedValue : public Asn1 {
public:
    bool hasValue() const noexcept { return !encoding_.isNull(); } ///< whether it was set
    /// The DER encoding; empty without a value.
    BufferRange<unsigned char> encoding() const noexcept { return encoding_.range(); }
    const Octets& encodingOctets() const noexcept { return encoding_; } ///< the same, shared

    /// An encoding that is valid for the type already; anything else gives undefined values.
    void assignEncoding(Octets encoding) { encoding_ = std::move(encoding); }

protected:
    EncodedValue() noexcept = default;

    Octets encoding_;
};

/// A value whose members are the fields of a derived structure.
class CERTSTOREUPDATER_API Sequence : public Asn1 {
protected:
    Sequence() noexcept = default;
};

/// A value that is one of several alternatives, which are fields of a derived structure. Only
/// the chosen one is looked at.
class CERTSTOREUPDATER_API Choice : public Asn1 {
public:
    static constexpr int nothing = -1; ///< `chosen` before `choose`

    /// Index of the chosen alternative in the order of the type, or `nothing`.
    int chosen() const noexcept { return chosen_; }
    bool hasValue() const noexcept { return chosen_ != nothing; } ///< whether one is chosen
    /// Chooses an alternative; its field gets its value separately. The index is looked at when
    /// the value is used.
    void choose(int alternative) noexcept { chosen_ = alternative; }

protected:
    Choice() noexcept = default;

private:
    int chosen_ = nothing;
};

} // namespace asn1
