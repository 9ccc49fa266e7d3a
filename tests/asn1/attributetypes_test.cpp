// Which attribute types a name's text knows.
#include "asn1support.h"
#include "nametext.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace asn1_test {
namespace {

using namespace testsupport;

// 2.5.4.3 is the commonName.
TEST(AttributeType, ThatOnlyResemblesAKnownOneIsWrittenAsItsIdentifier) {
    for (const std::string type : {"2.5.4.3.1", "2.5.4", "2.5.5.3", "2.6.4.3"}) {
        const auto given = decoded<asn1::AttributeTypeAndValue>(attribute(type, utf8String("a")));
        EXPECT_EQ(asciiOf(toText(given)), "OID." + type + "=#0C0161");
    }
}

// RFC 4519, and those that certificates carry besides: X.520 (businessCategory, name, pseudonym,
// organizationIdentifier), RFC 2985 (emailAddress).
TEST(AttributeTypes, HaveTheirNamesAndDescriptors) {
    std::vector<std::string> rows;
    for (const auto& [type, attribute] : asn1::DN_ATTRIBUTE::definedTypes()) {
        rows.push_back(asciiOf(type.text()));
        for (const auto& name : attribute.names)
            rows.back() += " " + asciiOf(name);
        rows.back() += attribute.hasNoStringForm ? " #" : "";
    }
    EXPECT_THAT(
        rows,
        testing::ElementsAre(
            "0.9.2342.19200300.100.1.1 UID userId", "0.9.2342.19200300.100.1.25 DC domainComponent",
            "1.2.840.113549.1.9.1 E emailAddress", "2.5.4.3 CN commonName", "2.5.4.4 SN surname",
            "2.5.4.5 serialNumber", "2.5.4.6 C countryName", "2.5.4.7 L localityName",
            "2.5.4.8 ST stateOrProvinceName", "2.5.4.9 STREET streetAddress",
            "2.5.4.10 O organizationName", "2.5.4.11 OU organizationalUnitName", "2.5.4.12 title",
            "2.5.4.15 businessCategory", "2.5.4.17 postalCode", "2.5.4.41 name",
            "2.5.4.42 GN givenName", "2.5.4.43 initials", "2.5.4.44 generationQualifier",
            "2.5.4.45 x500UniqueIdentifier #", "2.5.4.46 dnQualifier", "2.5.4.65 pseudonym",
            "2.5.4.97 organizationIdentifier"));
}

} // namespace
} // namespace asn1_test
