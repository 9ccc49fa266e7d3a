// A certificate's members, and certificates made of values.
#include "asn1support.h"
#include "nametext.h"

namespace asn1_test {
namespace {

using namespace testsupport;

asn1::AlgorithmIdentifier algorithmOf(const char* identifier) {
    asn1::AlgorithmIdentifier algorithm;
    algorithm.algorithm = asn1::ObjectIdentifier(identifier);
    algorithm.parameters = asn1::OpenType::fromEncoding(bufferOf(null()));
    return algorithm;
}

asn1::Name nameOfCommonName(const char* text) {
    asn1::AttributeTypeAndValue commonName;
    commonName.attributeType = asn1::ObjectIdentifier("2.5.4.3");
    commonName.value = asn1::OpenType(asn1::UTF8String(bufferOf(fromText(text))));
    asn1::RelativeDistinguishedName rdn;
    rdn.append(commonName);
    asn1::RDNSequence names;
    names.append(rdn);
    return asn1::Name(names);
}

asn1::Extension extensionOf(const char* identifier, asn1::ExtensionValue value) {
    asn1::Extension extension;
    extension.extnId = asn1::ObjectIdentifier(identifier);
    extension.critical = asn1::Boolean(true);
    extension.extnValue = std::move(value);
    return extension;
}

TEST(CertificateValues, MakeACertificateFromScratch) {
    asn1::Signed values;
    values.toBeSigned.version = asn1::Version(2);
    values.toBeSigned.serialNumber = asn1::CertificateSerialNumber(1);
    values.toBeSigned.signature = algorithmOf("1.2.840.113549.1.1.11");
    values.toBeSigned.issuer = nameOfCommonName("Issuer");
    values.toBeSigned.validity.notBefore = asn1::Time(asn1::UTCTime("260101000000Z"));
    values.toBeSigned.validity.notAfter = asn1::Time(asn1::GeneralizedTime("20510101000000Z"));
    values.toBeSigned.subject = nameOfCommonName("Subject");
    values.toBeSigned.subjectPublicKeyInfo.algorithm = algorithmOf("1.2.840.113549.1.1.1");
    const Bytes key = sequence({integer(0x7FFFFFFF), integer(65537)});
    values.toBeSigned.subjectPublicKeyInfo.subjectPublicKey = asn1::BitString(rangeOf(key), 0);
    values.toBeSigned.issuerUId = asn1::BitString(rangeOf({0xC1}), 0);
    values.toBeSigned.subjectUId = asn1::BitString(rangeOf({0xC2}), 1);
    asn1::BasicConstraintsSyntax constraints;
    constraints.cA = asn1::Boolean(true);
    asn1::Extensions extensions;
    extensions.append(extensionOf("2.5.29.15", asn1::ExtensionValue(bufferOf(namedBits({5, 6})))));
    extensions.append(extensionOf("2.5.29.19", asn1::ExtensionValue::holding(constraints)));
    values.toBeSigned.extensions = extensions;
    values.algorithm = algorithmOf("1.2.840.113549.1.1.11");
    const Bytes signature(32, 0x5A);
    values.signature = asn1::BitString(rangeOf(signature), 0);

    const Bytes expected =
        CertBuilder()
            .names("Subject", "Issuer")
            .validity(sequence({utcTime("260101000000Z"), generalizedTime("20510101000000Z")}))
            .uniqueIds(fromHex("81 02 00 C1 82 02 01 C2"))
            .extensions({keyUsage({5, 6}), basicConstraints(true)})
            .build();
    const asn1::Certificate certificate(values);
    EXPECT_EQ(encoded(certificate), expected);
    EXPECT_EQ(certificate.cmp(decoded<asn1::Certificate>(expected), asn1::Amatch::exact), 0);
    EXPECT_TRUE(certificate.isAuthority());
}

TEST(CertificateValues, AreThoseOfTheInput) {
    const auto certificate = decoded<asn1::Certificate>(fullCertificate().build());
    EXPECT_EQ(certificate.version().value(), 2);
    EXPECT_EQ(certificate.serialNumber().value(), 0x1234567);
    EXPECT_EQ(asciiOf(toText(certificate.issuer().rdnSequence)), "CN=Issuer, O=Example, C=DE");
    EXPECT_EQ(asciiOf(toText(certificate.subject().rdnSequence)), "CN=Subject, O=Example, C=DE");
    EXPECT_EQ(asciiOf(certificate.validity().notBefore.text()), "2026-01-01T00:00:00Z");
    EXPECT_EQ(asciiOf(certificate.validity().notAfter.text()), "2051-01-01T00:00:00Z");
    EXPECT_EQ(asciiOf(certificate.subjectPublicKeyInfo().algorithm.algorithm.text()),
              "1.2.840.113549.1.1.1");
    EXPECT_EQ(bytesOf(certificate.subjectPublicKeyInfo().subjectPublicKey.octets()),
              sequence({integer(0x7FFFFFFF), integer(65537)}));
    EXPECT_EQ(certificate.extensions().size(), 3u);
    EXPECT_EQ(asciiOf(certificate.algorithm().algorithm.text()), "1.2.840.113549.1.1.11");
    EXPECT_EQ(bytesOf(certificate.signature().octets()), Bytes(32, 0x5A));

    const asn1::CertificateV3 toBeSigned = certificate.toBeSigned();
    EXPECT_EQ(encoded(toBeSigned), fullCertificate().toBeSigned());
    EXPECT_EQ(bytesOf(toBeSigned.issuerUId->octets()), fromHex("C1C2"));
    EXPECT_EQ(toBeSigned.subjectUId->unusedBits(), 4u);
    EXPECT_EQ(asciiOf(toBeSigned.signature.algorithm.text()), "1.2.840.113549.1.1.11");
}

TEST(Certificate, TellsItsTwoAlgorithmsApart) {
    const auto certificate = decoded<asn1::Certificate>(sequence(
        {fullCertificate().toBeSigned(), sequence({objectIdentifier("1.2.3")}), bitString({1})}));
    EXPECT_EQ(asciiOf(certificate.algorithm().algorithm.text()), "1.2.3");
    EXPECT_EQ(asciiOf(certificate.toBeSigned().signature.algorithm.text()),
              "1.2.840.113549.1.1.11");
}

TEST(CertificateValues, OfVersion1HaveNoneOfTheLaterMembers) {
    const auto certificate = decoded<asn1::Certificate>(CertBuilder().version({}).build());
    EXPECT_EQ(certificate.version().value(), 0);
    EXPECT_FALSE(certificate.extensions().hasValue());
    const asn1::CertificateV1 values = certificate.toBeSigned();
    EXPECT_FALSE(values.version);
    EXPECT_FALSE(values.issuerUId);
    EXPECT_FALSE(values.subjectUId);
    EXPECT_FALSE(values.extensions);
}

TEST(CertificateValues, OutliveTheirCertificate) {
    asn1::Name subject;
    asn1::Extensions extensions;
    {
        const auto certificate = decoded<asn1::Certificate>(fullCertificate().build());
        subject = certificate.subject();
        extensions = certificate.extensions();
    }
    EXPECT_EQ(asciiOf(toText(subject.rdnSequence)), "CN=Subject, O=Example, C=DE");
    EXPECT_EQ(encoded(extensions[0]), keyUsage({0, 2}));
}

TEST(CertificateValues, ChangedMakeAnotherCertificate) {
    const auto certificate = decoded<asn1::Certificate>(fullCertificate().build());
    asn1::Signed values = certificate.values();
    values.toBeSigned.serialNumber = asn1::CertificateSerialNumber(0x7654321);
    EXPECT_EQ(encoded(asn1::Certificate(values)),
              fullCertificate().serialNumber(0x7654321).build());
    EXPECT_EQ(encoded(certificate), fullCertificate().build());
}

TEST(CertificateWithoutValue, SaysSoInEveryAccessor) {
    const asn1::Certificate none;
    const Thrown expected = unset("Certificate");
    EXPECT_FALSE(none.hasValue());
    EXPECT_EQ(thrownBy([&] { none.values(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.toBeSigned(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.algorithm(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.signature(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.version(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.serialNumber(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.issuer(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.validity(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.subject(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.subjectPublicKeyInfo(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.extensions(); }), expected);
    EXPECT_EQ(thrownBy([&] { none.checkUsage(5); }), expected);
    EXPECT_EQ(thrownBy([&] { none.hasExtension(asn1::ObjectIdentifier("1.2.3")); }), expected);
    EXPECT_EQ(thrownBy([&] { none.isAuthority(); }), expected);
    asn1::Integer number;
    EXPECT_EQ(thrownBy([&] { none.extensionValue(asn1::ObjectIdentifier("1.2.3"), number); }),
              expected);
}

TEST(CertificateMovedAway, HasNoValue) {
    auto certificate = decoded<asn1::Certificate>(fullCertificate().build());
    const asn1::Certificate taken = std::move(certificate);
    EXPECT_EQ(encoded(taken), fullCertificate().build());
    EXPECT_FALSE(certificate.hasValue());
    EXPECT_TRUE(certificate.encoding().empty());
}

TEST(ListMovedAway, IsEmpty) {
    auto names = decoded<asn1::RDNSequence>(name({{"CN", "A name of more than fifteen octets"}}));
    const asn1::RDNSequence taken = std::move(names);
    EXPECT_EQ(taken.size(), 1u);
    EXPECT_FALSE(names.hasValue());
    EXPECT_TRUE(names.begin() == names.end());
    EXPECT_EQ(names.size(), 0u);
    names = taken;
    EXPECT_EQ(names.size(), 1u);
}

TEST(ValueMovedToItself, StaysAsItIs) {
    auto number = asn1::Integer(5);
    asn1::Integer& same = number;
    number = std::move(same);
    EXPECT_EQ(number.value(), 5);
}

} // namespace
} // namespace asn1_test
