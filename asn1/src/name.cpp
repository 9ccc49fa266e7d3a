// Distinguished names.
#include "name.h"

#include "asn1type.h"

namespace asn1 {

// AttributeTypeAndValue ::= SEQUENCE { type OBJECT IDENTIFIER, value ANY DEFINED BY type }
static constexpr Member attributeTypeAndValueMembers[] = {
    member<&AttributeTypeAndValue::attributeType>("type"),
    member<&AttributeTypeAndValue::value>("value"),
};
constinit const Type AttributeTypeAndValue::asn1Type =
    sequence("AttributeTypeAndValue", attributeTypeAndValueMembers);
const Type& AttributeTypeAndValue::type() const noexcept {
    return asn1Type;
}

// RelativeDistinguishedName ::= SET OF AttributeTypeAndValue
constinit const Type RelativeDistinguishedName::asn1Type =
    setOf("RelativeDistinguishedName", AttributeTypeAndValue::asn1Type);
const Type& RelativeDistinguishedName::type() const noexcept {
    return asn1Type;
}

// RDNSequence ::= SEQUENCE OF RelativeDistinguishedName
constinit const Type RDNSequence::asn1Type =
    sequenceOf("RDNSequence", RelativeDistinguishedName::asn1Type);
const Type& RDNSequence::type() const noexcept {
    return asn1Type;
}

std::optional<AttributeTypeAndValue> RDNSequence::find(const ObjectIdentifier& attributeType,
                                                       unsigned occurrence) const {
    for (const RelativeDistinguishedName& names : *this)
        for (AttributeTypeAndValue attribute : names)
            if (attribute.attributeType.cmp(attributeType, Amatch::exact) == 0 && --occurrence == 0)
                return attribute;
    return std::nullopt;
}

// Name ::= CHOICE { rdnSequence RDNSequence }
static constexpr Member nameAlternatives[] = {member<&Name::rdnSequence>("rdnSequence")};
constinit const Type Name::asn1Type = choice("Name", nameAlternatives);
const Type& Name::type() const noexcept {
    return asn1Type;
}

// DirectoryString ::= CHOICE {
//     teletexString TeletexString, printableString PrintableString,
//     universalString UniversalString, utf8String UTF8String, bmpString BMPString }
static constexpr Member directoryStringAlternatives[] = {
    member<&DirectoryString::teletexString>("teletexString"),
    member<&DirectoryString::printableString>("printableString"),
    member<&DirectoryString::universalString>("universalString"),
    member<&DirectoryString::utf8String>("utf8String"),
    member<&DirectoryString::bmpString>("bmpString"),
};
constinit const Type DirectoryString::asn1Type =
    choice("DirectoryString", directoryStringAlternatives);
const Type& DirectoryString::type() const noexcept {
    return asn1Type;
}

} // namespace asn1
