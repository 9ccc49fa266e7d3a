// Values without members.
#pragma once

#include "asn1.h"

#include <compare>
#include <cstdint>
#include <string_view>

namespace asn1 {

/// BOOLEAN.
class CERTSTOREUPDATER_API Boolean : public ContentsValue {
public:
    Boolean() noexcept = default;
    explicit Boolean(bool value); ///< encoded at once

    /// \throws QuorError_Asn1_UnsetValue with "TYPE" = "BOOLEAN"
    bool value() const;

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// INTEGER of any length.
class CERTSTOREUPDATER_API Integer : public ContentsValue {
public:
    Integer() noexcept = default;
    explicit Integer(std::int64_t value); ///< encoded at once
    /// \param octets two's complement, big endian, any length but 0; redundant leading octets are
    ///   dropped
    /// \throws QuorError_Asn1_SettingValue with "TYPE" = "INTEGER" for no octets
    static Integer fromTwosComplement(BufferRange<unsigned char> octets);

    /// The number. One of any size is in `contents()`: two's complement, big endian, without
    /// redundant octets.
    /// \throws QuorError_Asn1_UnsetValue, or QuorError_Asn1_RangeViolation for a number of more
    ///   than 64 bits; both with "TYPE" = "INTEGER"
    std::int64_t value() const;

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// BIT STRING.
class CERTSTOREUPDATER_API BitString : public ContentsValue {
public:
    BitString() noexcept = default;
    /// \param octets       the bits, the first one the highest of the first octet
    /// \param unusedBits   how many low bits of the last octet do not belong to the string; they
    ///   are cleared
    /// \throws QuorError_Asn1_SettingValue with "TYPE" = "BIT STRING" for more than 7 unused
    ///   bits, or any where there are no octets
    BitString(BufferRange<unsigned char> octets, unsigned unusedBits);

    /// Whether the bit is there and is 1. Bit 0 is the first one.
    /// \throws QuorError_Asn1_UnsetValue with "TYPE" = "BIT STRING"
    bool bit(std::size_t index) const;
    /// The octets that hold the bits. Throws like `bit`.
    BufferRange<unsigned char> octets() const;
    unsigned unusedBits() const; ///< 0 to 7. Throws like `bit`.

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// OCTET STRING.
class CERTSTOREUPDATER_API OctetString : public ContentsValue {
public:
    OctetString() noexcept = default;
    explicit OctetString(Buffer<unsigned char> octets); ///< shares them

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// OBJECT IDENTIFIER of at most `maxContents` octets.
class CERTSTOREUPDATER_API ObjectIdentifier : public ContentsValue {
public:
    /// A bound, because writing an arc as decimal takes time that grows with its square. The
    /// longest identifiers in use, those made of UUIDs, take some 20 octets.
    static constexpr std::size_t maxContents = 4096;

    ObjectIdentifier() noexcept = default;
    /// \param dottedDecimal for example "2.5.29.15"; each arc fits into 64 bits
    /// \throws QuorError_Asn1_SettingValue with "TYPE" = "OBJECT IDENTIFIER" for anything else
    explicit ObjectIdentifier(std::string_view dottedDecimal);

    /// Dotted decimal, for example 2.5.29.15, with arcs of any size.
    /// \throws QuorError_Asn1_UnsetValue with "TYPE" = "OBJECT IDENTIFIER"
    TmpBuffer<wchar_t> text() const;

    /// Order and equality of the encoded arcs, for use as a key.
    friend CERTSTOREUPDATER_API std::strong_ordering
    operator<=>(const ObjectIdentifier& a, const ObjectIdentifier& b) noexcept;
    friend bool operator==(const ObjectIdentifier& a, const ObjectIdentifier& b) noexcept {
        return (a <=> b) == 0;
    }

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// The character string types (X.680 41), of which the universal tag number tells which one.
/// Contents are kept as they came; characters are looked at when the string is made text.
enum class CharacterSet : unsigned char {
    utf8 = 12,
    numeric = 18,
    printable = 19,
    teletex = 20,
    videotex = 21,
    ia5 = 22,
    graphic = 25,
    visible = 26,
    general = 27,
    universal = 28,
    bmp = 30,
};

/// Text of a string's contents octets: UTF-8 is decoded, BMPString gives its units,
/// UniversalString the low 16 bits of each character, all others one unit an octet.
/// \throws buffer::BufferError_InvalidEncodingUnit for malformed UTF-8
CERTSTOREUPDATER_API TmpBuffer<wchar_t> characterText(CharacterSet set,
                                                      BufferRange<unsigned char> contents);

/// What all character strings share.
class CERTSTOREUPDATER_API CharacterString : public ContentsValue {
public:
    /// \throws QuorError_Asn1_UnsetValue with "TYPE" = the type's name;
    ///   buffer::BufferError_InvalidEncodingUnit for malformed UTF-8
    TmpBuffer<wchar_t> text() const;

protected:
    CharacterString() noexcept = default;
    /// \param octets contents octets in the encoding of the type
    explicit CharacterString(Buffer<unsigned char> octets);
};

/// UTF8String.
class CERTSTOREUPDATER_API UTF8String : public CharacterString {
public:
    UTF8String() noexcept = default;
    /// \param octets UTF-8
    explicit UTF8String(Buffer<unsigned char> octets) : CharacterString(std::move(octets)) {}

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// PrintableString.
class CERTSTOREUPDATER_API PrintableString : public CharacterString {
public:
    PrintableString() noexcept = default;
    /// \param octets one a character
    explicit PrintableString(Buffer<unsigned char> octets) : CharacterString(std::move(octets)) {}

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// TeletexString, read as ISO 8859-1 as everybody does.
class CERTSTOREUPDATER_API TeletexString : public CharacterString {
public:
    TeletexString() noexcept = default;
    /// \param octets one a character
    explicit TeletexString(Buffer<unsigned char> octets) : CharacterString(std::move(octets)) {}

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// BMPString.
class CERTSTOREUPDATER_API BMPString : public CharacterString {
public:
    BMPString() noexcept = default;
    /// \param octets UTF-16, big endian
    /// \throws QuorError_Asn1_SettingValue with "TYPE" = "BMPString" for an odd number of octets
    explicit BMPString(Buffer<unsigned char> octets);

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// UniversalString.
class CERTSTOREUPDATER_API UniversalString : public CharacterString {
public:
    UniversalString() noexcept = default;
    /// \param octets UTF-32, big endian
    /// \throws QuorError_Asn1_SettingValue with "TYPE" = "UniversalString" if their number is no
    ///   multiple of 4
    explicit UniversalString(Buffer<unsigned char> octets);

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// UTCTime in the one form of DER: YYMMDDHHMMSSZ (X.690 11.8).
class CERTSTOREUPDATER_API UTCTime : public ContentsValue {
public:
    UTCTime() noexcept = default;
    /// \throws QuorError_Asn1_SettingValue with "TYPE" = "UTCTime" for any other form
    explicit UTCTime(std::string_view text);

    /// The contents' characters. \throws QuorError_Asn1_UnsetValue with "TYPE" = "UTCTime"
    std::string_view text() const;

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// GeneralizedTime in the one form of DER: YYYYMMDDHHMMSS[.f]Z without trailing zeros in the
/// fraction (X.690 11.7).
class CERTSTOREUPDATER_API GeneralizedTime : public ContentsValue {
public:
    GeneralizedTime() noexcept = default;
    /// \throws QuorError_Asn1_SettingValue with "TYPE" = "GeneralizedTime" for any other form
    explicit GeneralizedTime(std::string_view text);

    /// The contents' characters.
    /// \throws QuorError_Asn1_UnsetValue with "TYPE" = "GeneralizedTime"
    std::string_view text() const;

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// A value of any type: one whole element, whose contents are never looked into.
class CERTSTOREUPDATER_API OpenType : public EncodedValue {
public:
    OpenType() noexcept = default;
    /// The encoding of `value`. Throws what encoding throws.
    explicit OpenType(const Asn1& value);
    /// \throws QuorError_Asn1_SettingValue with "TYPE" = "ANY" if `encoding` is not exactly one
    ///   element with a length in its shortest form
    static OpenType fromEncoding(Buffer<unsigned char> encoding);

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

} // namespace asn1
