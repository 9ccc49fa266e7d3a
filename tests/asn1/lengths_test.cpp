// Inputs that are too short, too long, or say that they are.
#include "asn1support.h"

namespace asn1_test {
namespace {

using namespace testsupport;

Thrown decodingThrows(const Bytes& input) {
    asn1::Certificate certificate;
    return thrownBy([&] { decode(input, certificate); });
}

TEST(EmptyInput, DoesNotMatchAsANullRange) {
    asn1::Certificate certificate;
    EXPECT_EQ(thrownBy([&] { asn1::der::decode(Range(), certificate); }), mismatch(0));
    EXPECT_EQ(thrownBy([&] { asn1::aux::decodeBer(Range(), certificate, false); }), mismatch(0));
}

TEST(EmptyInput, DoesNotMatchAnyType) {
    asn1::Integer number;
    asn1::Time time;
    asn1::OpenType open;
    asn1::RDNSequence names;
    for (asn1::Asn1* value : {static_cast<asn1::Asn1*>(&number), static_cast<asn1::Asn1*>(&time),
                              static_cast<asn1::Asn1*>(&open), static_cast<asn1::Asn1*>(&names)})
        EXPECT_EQ(thrownBy([&] { decode({}, *value); }), mismatch(0));
}

TEST(CertificateCutShort, DoesNotMatchWhereverItIsCut) {
    const Bytes whole = fullCertificate().build();
    for (std::size_t size = 0; size != whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        // The outermost length says more than there is.
        EXPECT_EQ(decodingThrows(cut), mismatch(0)) << size << " octets";
    }
}

TEST(CertificateCutShort, DoesNotMatchWhereverItsToBeSignedIsCut) {
    const Bytes whole = fullCertificate().toBeSigned();
    const Bytes members(whole.begin() + 4, whole.end());
    std::size_t refused = 0;
    for (std::size_t size = 0; size != members.size(); ++size) {
        const Bytes cut(members.begin(), members.begin() + static_cast<std::ptrdiff_t>(size));
        asn1::CertificateV3 value;
        const Thrown thrown = thrownBy([&] { decode(element(0x30, cut), value); });
        if (thrown.type == typeid(void)) {
            // A cut before an optional member leaves a whole value.
            EXPECT_EQ(encoded(value), element(0x30, cut));
            continue;
        }
        ++refused;
        EXPECT_EQ(thrown.type, std::type_index(typeid(asn1::QuorError_Asn1_Decode)));
        EXPECT_EQ(thrown.params.front(),
                  std::make_pair(std::string("CAUSE"), std::string("ValueDoesNotMatch")));
    }
    // Before issuerUId, before subjectUId and before extensions.
    EXPECT_EQ(refused, members.size() - 3);
}

TEST(SurplusBytes, BehindASimpleValueAreToldOf) {
    asn1::Integer number(7);
    EXPECT_EQ(thrownBy([&] { decode(fromHex("02 01 05 00"), number); }), surplus(3, 4));
    EXPECT_EQ(number.value(), 7);
}

struct HugeLength {
    const char* what;
    const char* length;
};

TEST(HugeLength, DoesNotMatch) {
    const HugeLength lengths[] = {
        {"2^31 - 1", "84 7F FF FF FF"},
        {"2^32 - 1", "84 FF FF FF FF"},
        {"2^32", "85 01 00 00 00 00"},
        {"2^63 - 1", "88 7F FF FF FF FF FF FF FF"},
        {"2^63", "88 80 00 00 00 00 00 00 00"},
        {"2^64 - 1", "88 FF FF FF FF FF FF FF FF"},
        {"2^64 - 3, which would end before the element begins", "88 FF FF FF FF FF FF FF FD"},
        {"2^64", "89 01 00 00 00 00 00 00 00 00"},
    };
    for (const HugeLength& row : lengths) {
        const Bytes head = fromHex(row.length);
        asn1::OctetString octets;
        EXPECT_EQ(thrownBy([&] { decode(Bytes{0x04} + head + Bytes(20, 1), octets); }), mismatch(0))
            << row.what;
        EXPECT_EQ(thrownBy([&] { decodeBer(Bytes{0x04} + head + Bytes(20, 1), octets); }),
                  mismatch(0))
            << row.what;
        EXPECT_EQ(decodingThrows(Bytes{0x30} + head + Bytes(20, 0x30)), mismatch(0)) << row.what;
    }
}

TEST(HugeLength, OfManyOctetsDoesNotMatch) {
    for (const unsigned char count : Bytes{9, 16, 125, 126, 127}) {
        const Bytes head{0x04, static_cast<unsigned char>(0x80 | count)};
        asn1::OctetString octets;
        EXPECT_EQ(thrownBy([&] { decode(head + Bytes(count, 0xFF), octets); }), mismatch(0));
        EXPECT_EQ(thrownBy([&] { decodeBer(head + Bytes(count, 0xFF), octets); }), mismatch(0));
        EXPECT_EQ(thrownBy([&] { decode(head + Bytes(3, 0x00), octets); }), mismatch(0));
    }
}

TEST(LengthCutShort, DoesNotMatch) {
    for (const Bytes& input :
         {fromHex("04"), fromHex("04 81"), fromHex("04 82"), fromHex("04 82 01"),
          fromHex("04 82 01 00"), fromHex("04 82 00 80"), fromHex("04 81 80")}) {
        asn1::OctetString octets;
        EXPECT_EQ(thrownBy([&] { decode(input, octets); }), mismatch(0));
        EXPECT_EQ(thrownBy([&] { decodeBer(input, octets); }), mismatch(0));
    }
}

TEST(LengthWithLeadingZeros, IsBerButNotDer) {
    const Bytes input = Bytes{0x04, 0xFE} + Bytes(125, 0x00) + Bytes{0x02, 0xAA, 0xBB};
    asn1::OctetString octets;
    EXPECT_EQ(thrownBy([&] { decode(input, octets); }), mismatch(0));
    decodeBer(input, octets);
    EXPECT_EQ(bytesOf(octets.contents()), fromHex("AA BB"));
}

TEST(LengthInTheLongForm, IsTakenFromOneHundredAndTwentyEightOn) {
    asn1::OctetString octets;
    EXPECT_EQ(thrownBy([&] {
                  decode(Bytes{0x04, 0x81, 0x7F} + Bytes(127, 1), octets);
              }),
              mismatch(0));
    decode(Bytes{0x04, 0x81, 0x80} + Bytes(128, 1), octets);
    EXPECT_EQ(octets.contents().size(), 128u);
    EXPECT_EQ(thrownBy([&] {
                  decode(Bytes{0x04, 0x82, 0x00, 0xFF} + Bytes(255, 1), octets);
              }),
              mismatch(0));
    decode(Bytes{0x04, 0x82, 0x01, 0x00} + Bytes(256, 1), octets);
    EXPECT_EQ(octets.contents().size(), 256u);
}

class LengthOfContents : public ::testing::TestWithParam<std::size_t> {};

TEST_P(LengthOfContents, IsWrittenInItsShortestForm) {
    const Bytes contents(GetParam(), 0x33);
    EXPECT_EQ(encoded(asn1::OctetString(bufferOf(contents))), octetString(contents));
    EXPECT_EQ(encoded(decoded<asn1::OctetString>(octetString(contents))), octetString(contents));
}

INSTANTIATE_TEST_SUITE_P(AtTheBoundaries, LengthOfContents,
                         ::testing::Values(0, 1, 13, 14, 15, 16, 126, 127, 128, 129, 255, 256, 257,
                                           65535, 65536, 65537));

TEST(DeepNesting, AsAWholeInputDoesNotMatch) {
    const Bytes input = nested(0x30, 10'000);
    EXPECT_EQ(decodingThrows(input).type, std::type_index(typeid(asn1::QuorError_Asn1_Decode)));
    EXPECT_EQ(decodingThrows(input).params.front().second, "ValueDoesNotMatch");
}

TEST(DeepNesting, InsideAnOpenTypeIsKept) {
    const Bytes parameters = nested(0x30, 10'000);
    const Bytes algorithm = sequence({objectIdentifier("1.2.3"), parameters});
    const Bytes input = fullCertificate().signatureAlgorithm(algorithm).build();
    const auto certificate = decoded<asn1::Certificate>(input);
    EXPECT_EQ(encoded(certificate), input);
    EXPECT_EQ(encoded(asn1::Certificate(certificate.values())), input);
    EXPECT_EQ(encoded(*certificate.algorithm().parameters), parameters);
}

TEST(DeepNesting, InsideANameIsKept) {
    const Bytes value = nested(0x31, 10'000);
    const Bytes input =
        fullCertificate().subject(nameOf({set({attribute("1.2.3", value)})})).build();
    EXPECT_EQ(encoded(decoded<asn1::Certificate>(input)), input);
}

TEST(DeepNesting, OfIndefiniteLengthsInsideAnOpenTypeOfBerIsKept) {
    constexpr std::size_t depth = 10'000;
    Bytes value;
    for (std::size_t i = 0; i != depth; ++i)
        value.insert(value.end(), {0x30, 0x80});
    value.insert(value.end(), 2 * depth, 0x00);
    const auto open = decodedBer<asn1::OpenType>(value);
    // Only the outermost length is made definite: the contents' type is not known.
    EXPECT_EQ(encoded(open), element(0x30, Bytes(value.begin() + 2, value.end() - 2)));
}

TEST(DeepNesting, OfIndefiniteLengthsThatDoNotEndDoesNotMatch) {
    Bytes value;
    for (std::size_t i = 0; i != 10'000; ++i)
        value.insert(value.end(), {0x30, 0x80});
    asn1::OpenType open;
    EXPECT_EQ(thrownBy([&] { decodeBer(value, open); }), mismatch(0));
}

TEST(LargeCertificate, KeepsItsBytes) {
    const Bytes input = fullCertificate()
                            .extensions({extension("1.2.3.4", Bytes(300'000, 0xA5)), keyUsage({5})})
                            .build();
    const auto certificate = decoded<asn1::Certificate>(input);
    EXPECT_EQ(encoded(certificate), input);
    EXPECT_EQ(encoded(asn1::Certificate(certificate.values())), input);
    EXPECT_TRUE(certificate.isAuthority());
}

} // namespace
} // namespace asn1_test
