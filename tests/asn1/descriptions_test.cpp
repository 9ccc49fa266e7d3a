// How the types of a certificate describe themselves: as in the ASN.1 modules of RFC 5280.
#include "asn1support.h"
#include "asn1type.h"

#include <cstdio>
#include <string>

namespace asn1_test {
namespace {

using asn1::Member;
using asn1::Presence;
using asn1::Tagging;
using asn1::Type;
using asn1::TypeClass;

std::string tagText(const Member& member) {
    if (member.tagging == Tagging::none)
        return {};
    const std::string number = std::to_string(member.taggedIdentifier & 0x1F);
    return "[" + number + "] " +
           (member.tagging == Tagging::explicitTag ? "EXPLICIT " : "IMPLICIT ");
}

std::string presenceText(const Member& member) {
    if (member.presence == Presence::mandatory)
        return {};
    if (member.presence == Presence::optional)
        return " OPTIONAL";
    std::string text = " DEFAULT '";
    for (const unsigned char octet : member.defaultContents) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", octet);
        text += digits;
    }
    return text + "'H";
}

std::string membersText(const Type& type) {
    std::string text;
    for (const Member& member : type.members)
        text += (text.empty() ? "" : ", ") + std::string(member.name) + " " + tagText(member) +
                member.type->name + presenceText(member);
    return "{ " + text + " }";
}

/// A definition as in an ASN.1 module.
std::string definition(const Type& type) {
    const std::string name = type.name;
    switch (type.typeClass) {
    case TypeClass::sequence:
        return name + " ::= SEQUENCE " + membersText(type);
    case TypeClass::choice:
        return name + " ::= CHOICE " + membersText(type);
    case TypeClass::sequenceOf:
        return name + " ::= SEQUENCE OF " + type.element->name;
    case TypeClass::setOf:
        return name + " ::= SET OF " + type.element->name;
    case TypeClass::kept:
        return name + " ::= " + type.element->name;
    default:
        return name;
    }
}

template <class Value>
std::string definitionOf() {
    EXPECT_EQ(&Value().type(), &Value::asn1Type);
    return definition(Value::asn1Type);
}

// RFC 5280 4.1. A certificate is known under the name that X.509 gives it there.
TEST(Description, OfACertificate) {
    EXPECT_EQ(definitionOf<asn1::CertificateV3>(),
              "TBSCertificate ::= SEQUENCE { version [0] EXPLICIT INTEGER DEFAULT '00'H, "
              "serialNumber INTEGER, signature AlgorithmIdentifier, issuer Name, "
              "validity Validity, subject Name, subjectPublicKeyInfo SubjectPublicKeyInfo, "
              "issuerUId [1] IMPLICIT BIT STRING OPTIONAL, "
              "subjectUId [2] IMPLICIT BIT STRING OPTIONAL, "
              "extensions [3] EXPLICIT Extensions OPTIONAL }");
    EXPECT_EQ(definitionOf<asn1::Signed>(),
              "Signed ::= SEQUENCE { toBeSigned TBSCertificate, algorithm AlgorithmIdentifier, "
              "signature BIT STRING }");
    EXPECT_EQ(definitionOf<asn1::AlgorithmIdentifier>(),
              "AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, "
              "parameters ANY OPTIONAL }");
    EXPECT_EQ(definitionOf<asn1::Time>(),
              "Time ::= CHOICE { utcTime UTCTime, generalTime GeneralizedTime }");
    EXPECT_EQ(definitionOf<asn1::Validity>(),
              "Validity ::= SEQUENCE { notBefore Time, notAfter Time }");
    EXPECT_EQ(definitionOf<asn1::PublicKeyInfo>(),
              "SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier, "
              "subjectPublicKey BIT STRING }");
    EXPECT_EQ(definitionOf<asn1::Extension>(),
              "Extension ::= SEQUENCE { extnId OBJECT IDENTIFIER, "
              "critical BOOLEAN DEFAULT '00'H, extnValue OCTET STRING }");
    EXPECT_EQ(definitionOf<asn1::Extensions>(), "Extensions ::= SEQUENCE OF Extension");
    EXPECT_EQ(definitionOf<asn1::Certificate>(), "Certificate ::= Signed");
}

// RFC 5280 4.2.1.9, under the name that X.509 gives it.
TEST(Description, OfBasicConstraints) {
    EXPECT_EQ(definitionOf<asn1::BasicConstraintsSyntax>(),
              "BasicConstraintsSyntax ::= SEQUENCE { cA BOOLEAN DEFAULT '00'H, "
              "pathLenConstraint INTEGER OPTIONAL }");
}

// RFC 5280 4.1.2.4
TEST(Description, OfAName) {
    EXPECT_EQ(definitionOf<asn1::AttributeTypeAndValue>(),
              "AttributeTypeAndValue ::= SEQUENCE { type OBJECT IDENTIFIER, value ANY }");
    EXPECT_EQ(definitionOf<asn1::RelativeDistinguishedName>(),
              "RelativeDistinguishedName ::= SET OF AttributeTypeAndValue");
    EXPECT_EQ(definitionOf<asn1::RDNSequence>(),
              "RDNSequence ::= SEQUENCE OF RelativeDistinguishedName");
    EXPECT_EQ(definitionOf<asn1::Name>(), "Name ::= CHOICE { rdnSequence RDNSequence }");
    EXPECT_EQ(definitionOf<asn1::DirectoryString>(),
              "DirectoryString ::= CHOICE { teletexString TeletexString, "
              "printableString PrintableString, universalString UniversalString, "
              "utf8String UTF8String, bmpString BMPString }");
}

// X.680
TEST(Description, OfATypeWithoutPartsIsItsName) {
    EXPECT_EQ(definitionOf<asn1::Boolean>(), "BOOLEAN");
    EXPECT_EQ(definitionOf<asn1::Integer>(), "INTEGER");
    EXPECT_EQ(definitionOf<asn1::BitString>(), "BIT STRING");
    EXPECT_EQ(definitionOf<asn1::OctetString>(), "OCTET STRING");
    EXPECT_EQ(definitionOf<asn1::ObjectIdentifier>(), "OBJECT IDENTIFIER");
    EXPECT_EQ(definitionOf<asn1::UTF8String>(), "UTF8String");
    EXPECT_EQ(definitionOf<asn1::PrintableString>(), "PrintableString");
    EXPECT_EQ(definitionOf<asn1::TeletexString>(), "TeletexString");
    EXPECT_EQ(definitionOf<asn1::UniversalString>(), "UniversalString");
    EXPECT_EQ(definitionOf<asn1::BMPString>(), "BMPString");
    EXPECT_EQ(definitionOf<asn1::UTCTime>(), "UTCTime");
    EXPECT_EQ(definitionOf<asn1::GeneralizedTime>(), "GeneralizedTime");
    EXPECT_EQ(definitionOf<asn1::OpenType>(), "ANY");
}

} // namespace
} // namespace asn1_test
