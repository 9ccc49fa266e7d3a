// Distinguished names (RFC 5280 4.1.2.4).
#pragma once

#include "sequenceof.h"
#include "simpletypes.h"

#include <optional>

namespace asn1 {

/// AttributeTypeAndValue: a type, and a value of whatever type that one asks for.
class CERTSTOREUPDATER_API AttributeTypeAndValue : public Sequence {
public:
    ObjectIdentifier attributeType; ///< "type"
    OpenType value;                 ///< a DirectoryString for most types

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// RelativeDistinguishedName: a SET OF attributes.
class CERTSTOREUPDATER_API RelativeDistinguishedName : public ListOf<AttributeTypeAndValue> {
public:
    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// RDNSequence: a name from its root to its leaf.
class CERTSTOREUPDATER_API RDNSequence : public ListOf<RelativeDistinguishedName> {
public:
    /// The `occurrence`-th attribute of this type in encoding order, counted from 1, or none.
    std::optional<AttributeTypeAndValue> find(const ObjectIdentifier& attributeType,
                                              unsigned occurrence) const;

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// Name: a CHOICE with one alternative.
class CERTSTOREUPDATER_API Name : public Choice {
public:
    Name() noexcept = default;
    /// Chooses the one alternative.
    explicit Name(RDNSequence names) : rdnSequence(std::move(names)) { choose(0); }

    RDNSequence rdnSequence; ///< the one alternative

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// DirectoryString (RFC 5280 4.1.2.4).
class CERTSTOREUPDATER_API DirectoryString : public Choice {
public:
    TeletexString teletexString;     ///< alternative 0
    PrintableString printableString; ///< alternative 1
    UniversalString universalString; ///< alternative 2
    UTF8String utf8String;           ///< alternative 3
    BMPString bmpString;             ///< alternative 4

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

} // namespace asn1
