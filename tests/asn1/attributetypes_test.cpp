// Which attribute types a name's text knows.
#include "asn1support.h"
#include "nametext.h"

#include <string>

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

} // namespace
} // namespace asn1_test
