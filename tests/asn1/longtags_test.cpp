// Tag numbers from 31 on, whose identifiers take several octets.
#include "asn1support.h"

namespace asn1_test {
namespace {

using namespace testsupport;

// The second octet of the identifier is no length: were it taken for one, as many octets would
// follow.
TEST(TagNumberOf31, EndsWhereItsLengthSays) {
    const Bytes element = fromHex("1F 1F 01 05");
    asn1::OpenType value;
    EXPECT_EQ(thrownBy([&] { decode(element + Bytes(40, 0), value); }), surplus(4, 44));
    decode(element, value);
    EXPECT_EQ(encoded(value), element);
}

} // namespace
} // namespace asn1_test
