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
    OpenType value;

    static const Type asn1Type;
    const Type& type() const noexcept override;
};

/// RelativeDistinguishedName: a SET OF attributes.
class CERTSTOREUPDATER_API RelativeDistinguishedName : public ListOf<AttributeTypeAndValue> {
public:
    static const Type asn1Type;
    const Type& type() const noexcept override;
};

/// RDNSequence: a name from its root to its leaf.
class CERTSTOREUPDATER_API RDNSequence : public ListOf<RelativeDistinguishedName> {
public:
    /// The `occurrence`-th attribute of this type in encoding order, counted from 1, or none.
    std::optional<AttributeTypeAndValue> find(const ObjectIdentifier& attributeType,
                                              unsigned occurrence) const;

    static const Type asn1Type;
    const Type& type() const noexcept override;
};

/// Name: a CHOICE with one alternative.
class CERTSTOREUPDATER_API Name : public Choice {
public:
    Name() noexcept = default;
    explicit Name(RDNSequence names) : rdnSequence(std::move(names)) { choose(0); }

    RDNSequence rdnSequence;

    static const Type asn1Type;
    const Type& type() const noexcept override;
};

/// DirectoryString (RFC 5280 4.1.2.4).
class CERTSTOREUPDATER_API DirectoryString : public Choice {
public:
    TeletexString teletexString;
    PrintableString printableString;
    UniversalString universalString;
    UTF8String utf8String;
    BMPString bmpString;

    static const Type asn1Type;
    const Type& type() const noexcept override;
};

} // namespace asn1
