// Distinguished names as text, in the manner of RFC 4514.
#pragma once

#include "name.h"

#include <algorithm>
#include <map>
#include <vector>

namespace asn1 {

/// How a type of attribute is written.
struct CERTSTOREUPDATER_API DN_ATTRIBUTE {
    /// Lets the table be asked with contents octets that are no object of their own.
    struct ContentsOrder {
        using is_transparent = void;                          ///< std::map asks for it
        using Contents = BufferRange<unsigned char>;          ///< contents octets of an identifier
        static bool isLess(Contents a, Contents b) noexcept { ///< octet by octet
            return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
        }
        /// As `isLess`.
        bool operator()(const ObjectIdentifier& a, const ObjectIdentifier& b) const noexcept {
            return isLess(a.contents(), b.contents());
        }
        /// As `isLess`.
        bool operator()(const ObjectIdentifier& a, Contents b) const noexcept {
            return isLess(a.contents(), b);
        }
        /// As `isLess`.
        bool operator()(Contents a, const ObjectIdentifier& b) const noexcept {
            return isLess(a, b.contents());
        }
    };
    using DefinedTypes = std::map<ObjectIdentifier, DN_ATTRIBUTE, ContentsOrder>; ///< by identifier

    std::vector<Buffer<wchar_t>> names; ///< the first one is written
    bool hasNoStringForm = false;       ///< values are written in hexadecimal
    /// The text, not escaped yet, of the value with this encoding. Without a conversion there is
    /// no string form.
    TmpBuffer<wchar_t> (*convert)(BufferRange<unsigned char> encoding) = nullptr;

    /// The name that is written.
    /// \throws QuorError_Asn1_NoDefaultValue with "CAUSE" = "MissingStringType" without names
    const Buffer<wchar_t>& writtenName() const;

    /// The types that are written by name: those of RFC 4514 and RFC 5280, emailAddress, and
    /// what else stands in the names of certificates for persons and organisations.
    static const DefinedTypes& definedTypes();
};

/// \throws QuorError_Asn1_UnsetValue with "TYPE" if nothing is chosen or the chosen string has no
///   value; QuorError_Asn1_InternalError with "CAUSE" = "InvalidDirectoryStringComponent" if the
///   choice is none of the five; buffer::BufferError_InvalidEncodingUnit for malformed UTF-8
CERTSTOREUPDATER_API TmpBuffer<wchar_t> toText(const DirectoryString& string);

/// The name of the type, "=" and the value. One of , + = " line feed < > # ; \ in a value has a
/// backslash before it. A type without a name is written as "OID." and its identifier, a value
/// without a string form as "#" and the hexadecimal of its encoding.
/// \throws QuorError_Asn1_Decode if the value of a type with a string form is no character
///   string; buffer::BufferError_InvalidEncodingUnit for malformed UTF-8;
///   QuorError_Asn1_Encode with "FIELD_NAME" if "type" or "value" is not set
CERTSTOREUPDATER_API TmpBuffer<wchar_t>
toText(const AttributeTypeAndValue& attribute,
       const DN_ATTRIBUTE::DefinedTypes& definedTypes = DN_ATTRIBUTE::definedTypes());

/// The attributes, the last one first, with " + " between them. Throws what they throw.
CERTSTOREUPDATER_API TmpBuffer<wchar_t> toText(const RelativeDistinguishedName& names);

/// The names, the last one first, with ", " between them.
/// \throws QuorError_Asn1_UnsetValue with "TYPE" = "RDNSequence" without a value; what the
///   attributes throw
CERTSTOREUPDATER_API TmpBuffer<wchar_t> toText(const RDNSequence& names);

} // namespace asn1
