// The names by which errors tell of members and alternatives without a value.
#include "asn1support.h"
#include "name.h"

namespace asn1_test {
namespace {

TEST(MissingValue, OfAnExtensionsCriticalIsNamed) {
    asn1::Extension extension;
    extension.extnId = asn1::ObjectIdentifier("1.2.3");
    extension.critical.emplace();
    extension.extnValue = asn1::ExtensionValue(bufferOf({}));
    EXPECT_EQ(thrownBy([&] { encoded(extension); }), missingField("critical", "BOOLEAN"));
}

struct Alternative {
    const char* field;
    const char* type;
};

template <class Choice>
void expectNames(const std::vector<Alternative>& alternatives) {
    Choice value;
    for (std::size_t index = 0; index != alternatives.size(); ++index) {
        value.choose(static_cast<int>(index));
        EXPECT_EQ(thrownBy([&] { encoded(value); }),
                  missingField(alternatives[index].field, alternatives[index].type));
    }
}

TEST(MissingValue, OfAnAlternativeIsNamed) {
    expectNames<asn1::Time>({{"utcTime", "UTCTime"}, {"generalTime", "GeneralizedTime"}});
    expectNames<asn1::Name>({{"rdnSequence", "RDNSequence"}});
    expectNames<asn1::DirectoryString>({{"teletexString", "TeletexString"},
                                        {"printableString", "PrintableString"},
                                        {"universalString", "UniversalString"},
                                        {"utf8String", "UTF8String"},
                                        {"bmpString", "BMPString"}});
}

} // namespace
} // namespace asn1_test
