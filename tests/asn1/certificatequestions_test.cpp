// What a certificate may be used for, and what its extensions say.
#include "asn1support.h"
#include "oids.h"

namespace asn1_test {
namespace {

using namespace testsupport;

asn1::Certificate withExtensions(const std::vector<Bytes>& extensions) {
    Bytes list;
    for (const Bytes& extension : extensions)
        list = std::move(list) + extension;
    return decoded<asn1::Certificate>(
        CertBuilder().rawExtensions(explicitly(3, element(0x30, list))).build());
}

Bytes keyUsageOf(const Bytes& value) {
    return extension("2.5.29.15", value, true);
}

Bytes constraintsOf(const Bytes& value) {
    return extension("2.5.29.19", value, true);
}

TEST(KeyUsage, AllowsExactlyTheBitsThatItAsserts) {
    for (unsigned asserted = 0; asserted <= 8; ++asserted) {
        const auto certificate = withExtensions({keyUsage({asserted})});
        for (unsigned bit = 0; bit <= 24; ++bit)
            EXPECT_EQ(certificate.checkUsage(bit), bit == asserted) << bit << " of " << asserted;
    }
}

TEST(KeyUsage, WithAllBitsAllowsThoseThatThereAre) {
    const auto certificate = withExtensions({keyUsage({0, 1, 2, 3, 4, 5, 6, 7, 8})});
    for (unsigned bit = 0; bit <= 8; ++bit)
        EXPECT_TRUE(certificate.checkUsage(bit));
    for (const unsigned bit : {9u, 15u, 16u, 255u, 0xFFFFFFFFu})
        EXPECT_FALSE(certificate.checkUsage(bit));
}

TEST(KeyUsage, WithoutBitsAllowsNothing) {
    const auto certificate = withExtensions({keyUsage({})});
    for (unsigned bit = 0; bit <= 8; ++bit)
        EXPECT_FALSE(certificate.checkUsage(bit));
}

TEST(KeyUsage, ThatIsAbsentAllowsEverything) {
    for (const auto& certificate : {decoded<asn1::Certificate>(CertBuilder().build()),
                                    decoded<asn1::Certificate>(CertBuilder().version({}).build()),
                                    withExtensions({}), withExtensions({basicConstraints(true)})})
        for (unsigned bit = 0; bit <= 9; ++bit)
            EXPECT_TRUE(certificate.checkUsage(bit));
}

TEST(KeyUsage, IsReadAsBer) {
    // A long length, dirty unused bits, something behind the value.
    const auto certificate = withExtensions({keyUsageOf(fromHex("03 81 02 02 07 05 00"))});
    EXPECT_TRUE(certificate.checkUsage(5));
    EXPECT_FALSE(certificate.checkUsage(6));
    EXPECT_FALSE(certificate.checkUsage(7));
}

TEST(KeyUsage, InSegmentsAllowsWhatTheyAssertTogether) {
    const auto usagesOf = [](const char* hex) {
        const auto certificate = withExtensions({keyUsageOf(fromHex(hex))});
        EXPECT_EQ(certificate.isAuthority(), certificate.checkUsage(5)) << hex;
        std::vector<unsigned> usages;
        for (unsigned bit = 0; bit <= 24; ++bit)
            if (certificate.checkUsage(bit))
                usages.push_back(bit);
        return usages;
    };
    using Usages = std::vector<unsigned>;
    // Neither header nor counts of unused bits are bits of the string.
    EXPECT_EQ(usagesOf("23 06 03 04 00 80 00 00"), Usages{0});
    EXPECT_EQ(usagesOf("23 80 03 02 07 80 00 00"), Usages{0});
    EXPECT_EQ(usagesOf("23 08 03 02 00 04 03 02 07 80"), (Usages{5, 8}));
    EXPECT_EQ(usagesOf("23 0A 23 04 03 02 00 80 03 02 07 80"), (Usages{0, 8}));
    EXPECT_EQ(usagesOf("23 00"), Usages{});
}

TEST(KeyUsage, ThatIsMalformedFailsTheQuestion) {
    EXPECT_EQ(thrownBy([] { withExtensions({keyUsageOf({})}).checkUsage(0); }), mismatch(0));
    EXPECT_EQ(thrownBy([] { withExtensions({keyUsageOf(fromHex("03 00"))}).checkUsage(0); }),
              mismatch(0));
    EXPECT_EQ(thrownBy([] { withExtensions({keyUsageOf(fromHex("03 02 08 80"))}).checkUsage(0); }),
              mismatch(0));
    EXPECT_EQ(thrownBy([] { withExtensions({keyUsageOf(octetString({0x80}))}).checkUsage(0); }),
              wrongTag("03", "04", 0));
}

TEST(KeyUsage, ThatIsThereTwiceCountsTheFirstTime) {
    const auto certificate = withExtensions({keyUsage({0}), keyUsage({5})});
    EXPECT_TRUE(certificate.checkUsage(0));
    EXPECT_FALSE(certificate.checkUsage(5));
    EXPECT_FALSE(certificate.isAuthority());
}

struct AuthorityRow {
    const char* what;
    std::vector<Bytes> extensions;
    bool isAuthority;
};

TEST(Authority, IsDecidedByKeyUsageFirst) {
    const AuthorityRow rows[] = {
        {"no extension", {}, false},
        {"keyCertSign", {keyUsage({5})}, true},
        {"keyCertSign among others", {keyUsage({0, 5, 6})}, true},
        {"no keyCertSign", {keyUsage({0, 6})}, false},
        {"no usage at all", {keyUsage({})}, false},
        {"cA", {basicConstraints(true)}, true},
        {"cA with a path length", {basicConstraints(true, 0)}, true},
        {"constraints without cA", {basicConstraints(std::nullopt)}, false},
        {"constraints with only a path length", {basicConstraints(std::nullopt, 1)}, false},
        {"cA FALSE encoded", {constraintsOf(sequence({boolean(false)}))}, false},
        {"cA neither 00 nor FF", {constraintsOf(sequence({fromHex("01 01 01")}))}, true},
        {"constraints of indefinite length", {constraintsOf(fromHex("3080 0101FF 0000"))}, true},
        {"keyCertSign and cA", {keyUsage({5}), basicConstraints(true)}, true},
        {"keyCertSign without cA", {keyUsage({5}), basicConstraints(std::nullopt)}, true},
        {"cA without keyCertSign", {keyUsage({0}), basicConstraints(true)}, false},
        {"cA before KeyUsage", {basicConstraints(true), keyUsage({0})}, false},
        {"cA and something behind", {constraintsOf(sequence({boolean(true)}) + Bytes{0})}, true},
        {"keyCertSign and something behind", {keyUsageOf(bitString({4}, 2) + Bytes{0})}, true},
        {"malformed constraints behind KeyUsage",
         {keyUsage({5}), constraintsOf(fromHex("FF"))},
         true},
        {"constraints twice", {basicConstraints(true), basicConstraints(std::nullopt)}, true},
        {"another extension", {extension("2.5.29.17", sequence({}))}, false},
    };
    for (const AuthorityRow& row : rows)
        EXPECT_EQ(withExtensions(row.extensions).isAuthority(), row.isAuthority) << row.what;
}

TEST(Authority, OfACertificateWithoutExtensionsIsDenied) {
    EXPECT_FALSE(decoded<asn1::Certificate>(CertBuilder().build()).isAuthority());
}

TEST(Authority, IsNotDecidedByWhatIsMalformed) {
    EXPECT_EQ(thrownBy([] { withExtensions({keyUsageOf({})}).isAuthority(); }), mismatch(0));
    EXPECT_EQ(thrownBy([] {
                  withExtensions({keyUsageOf({}), basicConstraints(true)}).isAuthority();
              }),
              mismatch(0));
    EXPECT_EQ(thrownBy([] { withExtensions({constraintsOf({})}).isAuthority(); }), mismatch(0));
    EXPECT_EQ(thrownBy([] {
                  withExtensions({constraintsOf(sequence({fromHex("01 02 FF FF")}))}).isAuthority();
              }),
              mismatch(2));
    EXPECT_EQ(thrownBy([] { withExtensions({constraintsOf(boolean(true))}).isAuthority(); }),
              wrongTag("30", "01", 0));
}

TEST(BasicConstraints, WithCaButNoValueCannotAnswer) {
    asn1::BasicConstraintsSyntax constraints;
    EXPECT_FALSE(constraints.isAuthority());
    constraints.cA.emplace();
    EXPECT_EQ(thrownBy([&] { constraints.isAuthority(); }), unset("BOOLEAN"));
    constraints.cA = asn1::Boolean(false);
    EXPECT_FALSE(constraints.isAuthority());
    constraints.cA = asn1::Boolean(true);
    EXPECT_TRUE(constraints.isAuthority());
}

TEST(Extension, IsFoundByItsIdentifier) {
    const auto certificate = withExtensions({keyUsage({0}), extension("1.2.3.4", {})});
    EXPECT_TRUE(certificate.hasExtension(asn1::id_ce_keyUsage));
    EXPECT_TRUE(certificate.hasExtension(asn1::ObjectIdentifier("1.2.3.4")));
    EXPECT_FALSE(certificate.hasExtension(asn1::id_ce_basicConstraints));
    EXPECT_FALSE(certificate.hasExtension(asn1::ObjectIdentifier("1.2.3")));
    EXPECT_FALSE(certificate.hasExtension(asn1::ObjectIdentifier("1.2.3.4.5")));
}

TEST(Extension, IsNotFoundInACertificateWithoutAny) {
    EXPECT_FALSE(
        decoded<asn1::Certificate>(CertBuilder().build()).hasExtension(asn1::id_ce_keyUsage));
    EXPECT_FALSE(withExtensions({}).hasExtension(asn1::id_ce_keyUsage));
}

TEST(ExtensionValue, IsThatOfTheFirstExtension) {
    const auto certificate = withExtensions(
        {extension("1.2.3", integer(1)), keyUsage({0}), extension("1.2.3", integer(2))});
    asn1::Integer number;
    certificate.extensionValue(asn1::ObjectIdentifier("1.2.3"), number);
    EXPECT_EQ(number.value(), 1);
}

TEST(ExtensionValue, OfAnAbsentExtensionIsMissing) {
    const Thrown expected = event<asn1::QuorError_Asn1_ObjectMissing>({{"EXTENSION", "2.5.29.19"}});
    asn1::BasicConstraintsSyntax constraints;
    for (const auto& certificate : {decoded<asn1::Certificate>(CertBuilder().build()),
                                    withExtensions({}), withExtensions({keyUsage({5})})})
        EXPECT_EQ(thrownBy([&] {
                      certificate.extensionValue(asn1::id_ce_basicConstraints, constraints);
                  }),
                  expected);
}

TEST(ExtensionValue, OfAnotherTypeLeavesTheTargetAsItWas) {
    const auto certificate = withExtensions({extension("1.2.3", boolean(true))});
    asn1::Integer number(5);
    EXPECT_EQ(
        thrownBy([&] { certificate.extensionValue(asn1::ObjectIdentifier("1.2.3"), number); }),
        wrongTag("02", "01", 0));
    EXPECT_EQ(number.value(), 5);
}

TEST(ExtensionValue, FollowedByOtherBytesIsTaken) {
    const auto certificate = withExtensions({extension("1.2.3", integer(7) + fromHex("FF"))});
    asn1::Integer number;
    certificate.extensionValue(asn1::ObjectIdentifier("1.2.3"), number);
    EXPECT_EQ(number.value(), 7);
}

asn1::Certificate holding(const asn1::BasicConstraintsSyntax& constraints) {
    asn1::Signed values = decoded<asn1::Signed>(CertBuilder().build());
    asn1::Extension extension;
    extension.extnId = asn1::id_ce_basicConstraints;
    extension.extnValue = asn1::ExtensionValue::holding(constraints);
    values.toBeSigned.extensions.emplace().append(extension);
    return asn1::Certificate(values);
}

TEST(ExtensionValue, IsReadUpToTheEndOfTheValueThatIsAskedFor) {
    const asn1::ExtensionValue value(bufferOf(integer(5) + null()));
    asn1::Integer number;
    value.read(number);
    EXPECT_EQ(number.value(), 5);
}

TEST(ExtensionValueHeldDecoded, IsEncodedWithTheCertificate) {
    asn1::BasicConstraintsSyntax constraints;
    constraints.cA = asn1::Boolean(true);
    constraints.pathLenConstraint = asn1::Integer(2);
    const asn1::Certificate certificate = holding(constraints);
    EXPECT_EQ(encoded(certificate),
              CertBuilder()
                  .extensions({extension("2.5.29.19", sequence({boolean(true), integer(2)}))})
                  .build());
    EXPECT_TRUE(certificate.isAuthority());
}

TEST(ExtensionValueHeldDecoded, IsReadThroughItsEncoding) {
    asn1::BasicConstraintsSyntax constraints;
    constraints.pathLenConstraint = asn1::Integer(2);
    const auto value = asn1::ExtensionValue::holding(constraints);
    ASSERT_NE(value.decoded(), nullptr);
    EXPECT_EQ(value.decoded()->cmp(constraints, asn1::Amatch::exact), 0);
    EXPECT_EQ(bytesOf(value.contents()), sequence({integer(2)}));
    asn1::BasicConstraintsSyntax read;
    read.cA = asn1::Boolean(true);
    value.read(read);
    EXPECT_FALSE(read.cA);
    EXPECT_EQ(read.pathLenConstraint->value(), 2);
}

TEST(ExtensionValueHeldDecoded, MustHaveAValue) {
    EXPECT_EQ(thrownBy([] { asn1::ExtensionValue::holding(asn1::Integer()); }),
              missingField("INTEGER", "INTEGER"));
}

TEST(ExtensionValueHeldDecoded, GivesWayToOctets) {
    asn1::Extension extension;
    extension.extnId = asn1::ObjectIdentifier("1.2.3");
    extension.extnValue = asn1::ExtensionValue::holding(asn1::Integer(1));
    decode(testsupport::extension("1.2.4", integer(2)), extension);
    EXPECT_EQ(extension.extnValue.decoded(), nullptr);
    asn1::Integer number;
    extension.extnValue.read(number);
    EXPECT_EQ(number.value(), 2);
}

TEST(ExtensionValue, WithoutValueIsUnset) {
    asn1::Integer number(5);
    EXPECT_EQ(thrownBy([&] { asn1::ExtensionValue().read(number); }), unset("OCTET STRING"));
    EXPECT_EQ(number.value(), 5);
}

TEST(KnownIdentifiers, AreThoseOfTheirStandards) {
    EXPECT_EQ(asciiOf(asn1::id_ce_keyUsage.text()), "2.5.29.15");
    EXPECT_EQ(asciiOf(asn1::id_ce_basicConstraints.text()), "2.5.29.19");
    EXPECT_EQ(asciiOf(asn1::id_at_commonName.text()), "2.5.4.3");
}

} // namespace
} // namespace asn1_test
