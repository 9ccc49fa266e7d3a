// Encoding: what is written, what is left out, what is missed; the setting for encoded defaults.
#include "asn1support.h"

#include <functional>

namespace asn1_test {
namespace {

using namespace testsupport;

TEST(Encoding, OfADecodedCertificateGivesTheBytesThatItKeeps) {
    const Bytes input = fullCertificate().build();
    const auto certificate = decoded<asn1::Certificate>(input);
    const auto encoding = asn1::aux::encodeDer(certificate, false);
    EXPECT_EQ(bytesOf(encoding), input);
    EXPECT_EQ(encoding.data(), certificate.encoding().begin());
}

TEST(Encoding, OfContentsOnlyLeavesTagAndLengthOut) {
    const auto certificate = decoded<asn1::Certificate>(fullCertificate().build());
    const Bytes contents = bytesOf(asn1::aux::encodeDer(certificate, true));
    EXPECT_EQ(element(0x30, contents), fullCertificate().build());
    EXPECT_EQ(bytesOf(asn1::aux::encodeDer(asn1::Integer(5), true)), fromHex("05"));
    EXPECT_EQ(bytesOf(asn1::aux::encodeDer(asn1::OctetString(bufferOf({})), true)), Bytes());
}

TEST(Encoding, LeavesOutMembersThatHaveTheirDefaultValue) {
    asn1::BasicConstraintsSyntax constraints;
    constraints.cA = asn1::Boolean(false);
    EXPECT_EQ(encoded(constraints), sequence({}));
    constraints.cA = asn1::Boolean(true);
    EXPECT_EQ(encoded(constraints), sequence({boolean(true)}));

    auto values = decoded<asn1::Signed>(fullCertificate().build());
    values.toBeSigned.version = asn1::Version(0);
    EXPECT_EQ(encoded(values), fullCertificate().version({}).build());
}

TEST(Encoding, TellsOfAMemberThatIsThereWithoutAValue) {
    asn1::BasicConstraintsSyntax constraints;
    constraints.cA.emplace();
    EXPECT_EQ(thrownBy([&] { encoded(constraints); }), missingField("cA", "BOOLEAN"));
    constraints.cA = asn1::Boolean(true);
    constraints.pathLenConstraint.emplace();
    EXPECT_EQ(thrownBy([&] { encoded(constraints); }),
              missingField("pathLenConstraint", "INTEGER"));
}

TEST(Encoding, TellsNoValueFromAnEmptyOne) {
    EXPECT_EQ(thrownBy([] { encoded(asn1::OctetString()); }),
              missingField("OCTET STRING", "OCTET STRING"));
    EXPECT_EQ(encoded(asn1::OctetString(bufferOf({}))), octetString({}));
    asn1::RDNSequence names;
    EXPECT_EQ(thrownBy([&] { encoded(names); }), missingField("RDNSequence", "RDNSequence"));
    names.clear();
    EXPECT_EQ(encoded(names), sequence({}));
}

TEST(Encoding, TellsOfAChoiceThatIsNotMade) {
    EXPECT_EQ(thrownBy([] { encoded(asn1::Time()); }), missingField("Time", "Time"));
    asn1::Time time;
    time.choose(1);
    EXPECT_EQ(thrownBy([&] { encoded(time); }), missingField("generalTime", "GeneralizedTime"));
    time.choose(2);
    EXPECT_EQ(thrownBy([&] { encoded(time); }), missingField("Time", "Time"));
}

struct MissingMember {
    const char* field;
    const char* type;
    std::function<void(asn1::Signed&)> remove;
};

void PrintTo(const MissingMember& row, std::ostream* out) {
    *out << row.field << " of type " << row.type;
}

class MandatoryMember : public ::testing::TestWithParam<MissingMember> {};

TEST_P(MandatoryMember, IsNamedWhenItHasNoValue) {
    auto values = decoded<asn1::Signed>(fullCertificate().build());
    GetParam().remove(values);
    const Thrown expected = missingField(GetParam().field, GetParam().type);
    EXPECT_EQ(thrownBy([&] { encoded(values); }), expected);
    EXPECT_EQ(thrownBy([&] { asn1::Certificate certificate(values); }), expected);
}

asn1::Name nameWithoutNames() {
    asn1::Name name;
    name.choose(0);
    return name;
}

INSTANTIATE_TEST_SUITE_P(
    OfACertificate, MandatoryMember,
    ::testing::Values(
        MissingMember{"serialNumber", "INTEGER",
                      [](asn1::Signed& all) { all.toBeSigned.serialNumber = {}; }},
        MissingMember{"algorithm", "OBJECT IDENTIFIER",
                      [](asn1::Signed& all) { all.toBeSigned.signature = {}; }},
        MissingMember{"parameters", "ANY",
                      [](asn1::Signed& all) { all.toBeSigned.signature.parameters.emplace(); }},
        MissingMember{"issuer", "Name", [](asn1::Signed& all) { all.toBeSigned.issuer = {}; }},
        MissingMember{"rdnSequence", "RDNSequence",
                      [](asn1::Signed& all) { all.toBeSigned.issuer = nameWithoutNames(); }},
        MissingMember{"notBefore", "Time",
                      [](asn1::Signed& all) { all.toBeSigned.validity.notBefore = {}; }},
        MissingMember{"notAfter", "Time",
                      [](asn1::Signed& all) { all.toBeSigned.validity.notAfter = {}; }},
        MissingMember{"generalTime", "GeneralizedTime",
                      [](asn1::Signed& all) { all.toBeSigned.validity.notBefore.choose(1); }},
        MissingMember{"subject", "Name", [](asn1::Signed& all) { all.toBeSigned.subject = {}; }},
        MissingMember{"algorithm", "OBJECT IDENTIFIER",
                      [](asn1::Signed& all) { all.toBeSigned.subjectPublicKeyInfo = {}; }},
        MissingMember{
            "subjectPublicKey", "BIT STRING",
            [](asn1::Signed& all) { all.toBeSigned.subjectPublicKeyInfo.subjectPublicKey = {}; }},
        MissingMember{"version", "INTEGER",
                      [](asn1::Signed& all) { all.toBeSigned.version.emplace() = {}; }},
        MissingMember{"issuerUId", "BIT STRING",
                      [](asn1::Signed& all) { all.toBeSigned.issuerUId.emplace(); }},
        MissingMember{"subjectUId", "BIT STRING",
                      [](asn1::Signed& all) { all.toBeSigned.subjectUId.emplace(); }},
        MissingMember{"extensions", "Extensions",
                      [](asn1::Signed& all) { all.toBeSigned.extensions.emplace(); }},
        MissingMember{"algorithm", "OBJECT IDENTIFIER",
                      [](asn1::Signed& all) { all.algorithm = {}; }},
        MissingMember{"signature", "BIT STRING", [](asn1::Signed& all) { all.signature = {}; }}));

TEST(Encoding, OfACertificateWithoutValueNamesTheFirstMandatoryMember) {
    EXPECT_EQ(thrownBy([] { encoded(asn1::Certificate()); }),
              missingField("serialNumber", "Certificate"));
}

TEST(Encoding, OfAnExtensionNamesWhatItLacks) {
    asn1::Extension extension;
    EXPECT_EQ(thrownBy([&] { encoded(extension); }), missingField("extnId", "OBJECT IDENTIFIER"));
    extension.extnId = asn1::ObjectIdentifier("1.2.3");
    EXPECT_EQ(thrownBy([&] { encoded(extension); }), missingField("extnValue", "OCTET STRING"));
    extension.extnValue = asn1::ExtensionValue(bufferOf({}));
    EXPECT_EQ(encoded(extension), testsupport::extension("1.2.3", {}));
}

TEST(EncodedDefaults, AreRefusedUnlessAProgramAcceptsThem) {
    EXPECT_FALSE(asn1::encodedDefaultsAccepted());
    {
        const EncodedDefaultsAccepted accepted;
        EXPECT_TRUE(asn1::encodedDefaultsAccepted());
    }
    EXPECT_FALSE(asn1::encodedDefaultsAccepted());
}

TEST(EncodedDefaults, AreDroppedWhereTheyAreAccepted) {
    const Bytes encodedV1 = fullCertificate().version(explicitly(0, integer(0))).build();
    const Bytes encodedFalse =
        fullCertificate().extensions({extension("1.2.3", {1, 2}, false), keyUsage({5})}).build();
    asn1::Certificate certificate;
    {
        const EncodedDefaultsAccepted accepted;
        decode(encodedV1, certificate);
        EXPECT_EQ(encoded(certificate), fullCertificate().version({}).build());
        EXPECT_EQ(certificate.version().value(), 0);
        decode(encodedFalse, certificate);
        EXPECT_EQ(
            encoded(certificate),
            fullCertificate().extensions({extension("1.2.3", {1, 2}), keyUsage({5})}).build());
        EXPECT_TRUE(certificate.isAuthority());
    }
    EXPECT_EQ(thrownBy([&] { decode(encodedV1, certificate); }),
              decodeError("DefaultValuePresentInDEREncoding",
                          offsetOf(explicitly(0, integer(0)), encodedV1)));
}

TEST(EncodedDefaults, AreTheOnlyThingThatTheSettingChanges) {
    const EncodedDefaultsAccepted accepted;
    asn1::Boolean flag;
    EXPECT_EQ(thrownBy([&] { decode(fromHex("01 01 01"), flag); }), mismatch(0));
    asn1::OpenType open;
    EXPECT_EQ(thrownBy([&] { decode(fromHex("30 80 00 00"), open); }),
              decodeError("UndefinedLengthPresentInDerEncoding", 0));
    const Bytes good = fullCertificate().build();
    EXPECT_EQ(encoded(decoded<asn1::Certificate>(good)), good);
}

} // namespace
} // namespace asn1_test
