// What a key is registered for: signatures or key exchange.
#include "storetest.h"

#include <optional>
#include <ostream>

namespace testsupport {
namespace {

struct KeySpecCase {
    const char* usage;
    std::optional<Bytes> extension;
    std::uint32_t keySpec;

    friend void PrintTo(const KeySpecCase& c, std::ostream* out) { *out << c.usage; }
};

asn1::Certificate certificateWith(const std::optional<Bytes>& extension) {
    CertBuilder builder;
    if (extension)
        builder.extensions({*extension});
    return certificateOf(builder.build());
}

class CertStoreHelperKeySpec : public testing::TestWithParam<KeySpecCase> {};

TEST_P(CertStoreHelperKeySpec, FollowsFromTheKeyUsage) {
    const TestStore store;
    const CertStoreHelper helper(store.name());
    EXPECT_EQ(helper.getKeySpec(certificateWith(GetParam().extension)), GetParam().keySpec);
}

INSTANTIATE_TEST_SUITE_P(
    Usages, CertStoreHelperKeySpec,
    testing::Values(KeySpecCase{"digitalSignature", keyUsage({0}), AT_SIGNATURE},
                    KeySpecCase{"nonRepudiation", keyUsage({1}), AT_SIGNATURE},
                    KeySpecCase{"keyEncipherment", keyUsage({2}), AT_KEYEXCHANGE},
                    KeySpecCase{"dataEncipherment", keyUsage({3}), AT_KEYEXCHANGE},
                    KeySpecCase{"keyAgreement", keyUsage({4}), 0},
                    KeySpecCase{"keyCertSign", keyUsage({5}), AT_SIGNATURE},
                    KeySpecCase{"cRLSign", keyUsage({6}), AT_SIGNATURE},
                    KeySpecCase{"encipherOnly", keyUsage({7}), 0},
                    KeySpecCase{"decipherOnly", keyUsage({8}), 0},
                    KeySpecCase{"no bit at all", keyUsage({}), 0},
                    KeySpecCase{"digitalSignature, keyEncipherment", keyUsage({0, 2}),
                                AT_KEYEXCHANGE},
                    KeySpecCase{"cRLSign, dataEncipherment", keyUsage({3, 6}), AT_KEYEXCHANGE},
                    KeySpecCase{"keyAgreement, cRLSign", keyUsage({4, 6}), AT_SIGNATURE},
                    KeySpecCase{"no KeyUsage: any use", std::nullopt, AT_KEYEXCHANGE}));

TEST(CertStoreHelperKeySpecErrors, PassesOnThatTheKeyUsageIsMalformed) {
    const TestStore store;
    const CertStoreHelper helper(store.name());
    const asn1::Certificate malformed = certificateWith(extension("2.5.29.15", integer(1)));
    EXPECT_THROW(helper.getKeySpec(malformed), asn1::QuorError_Asn1_Decode);
}

} // namespace
} // namespace testsupport
