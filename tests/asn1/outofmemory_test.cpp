// What is allocated, and what is left when there is no memory.
#include "allocationcount.h"
#include "asn1support.h"
#include "nametext.h"
#include "oids.h"

namespace asn1_test {
namespace {

using namespace testsupport;

const Bytes input = fullCertificate().build();

template <class Operation>
std::size_t allocationsOf(Operation operation) {
    const AllocationCount count;
    operation();
    return count.allocations();
}

TEST(Allocations, OfDecodingACertificateAreOne) {
    asn1::Certificate certificate;
    EXPECT_EQ(allocationsOf([&] { asn1::der::decode(rangeOf(input), certificate); }), 1u);
    EXPECT_EQ(encoded(certificate), input);
}

TEST(Allocations, OfDecodingIntoSeparateValuesAreOne) {
    asn1::Signed values;
    EXPECT_EQ(allocationsOf([&] { asn1::der::decode(rangeOf(input), values); }), 1u);
    EXPECT_EQ(encoded(values), input);
}

TEST(Allocations, OfDecodingAShortValueAreNone) {
    const Bytes number = integer(5);
    asn1::Integer value;
    EXPECT_EQ(allocationsOf([&] { asn1::der::decode(rangeOf(number), value); }), 0u);
    EXPECT_EQ(value.value(), 5);
}

TEST(Allocations, OfCopyingACertificateAreNone) {
    const auto certificate = decoded<asn1::Certificate>(input);
    EXPECT_EQ(allocationsOf([&] {
                  const asn1::Certificate copy(certificate);
                  asn1::Certificate assigned;
                  assigned = copy;
              }),
              0u);
}

TEST(Allocations, OfCopyingSeparateValuesAreNone) {
    const auto values = decoded<asn1::Signed>(input);
    EXPECT_EQ(allocationsOf([&] { const asn1::Signed copy(values); }), 0u);
}

TEST(Allocations, OfEncodingADecodedCertificateAreNone) {
    const auto certificate = decoded<asn1::Certificate>(input);
    EXPECT_EQ(allocationsOf([&] { asn1::aux::encodeDer(certificate, false); }), 0u);
}

TEST(Allocations, OfReadingMembersAreNone) {
    const auto certificate = decoded<asn1::Certificate>(input);
    EXPECT_EQ(allocationsOf([&] { certificate.version(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.serialNumber(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.issuer(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.validity(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.subject(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.subjectPublicKeyInfo(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.extensions(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.algorithm(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.signature(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.toBeSigned(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.values(); }), 0u);
}

TEST(Allocations, OfQuestionsToACertificateAreNone) {
    const auto certificate = decoded<asn1::Certificate>(input);
    EXPECT_EQ(allocationsOf([&] { certificate.checkUsage(5); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.isAuthority(); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.hasExtension(asn1::id_ce_basicConstraints); }), 0u);
    const asn1::RDNSequence names = certificate.subject().rdnSequence;
    EXPECT_EQ(allocationsOf([&] { names.find(asn1::id_at_commonName, 1); }), 0u);
    EXPECT_EQ(allocationsOf([&] { certificate.cmp(certificate, asn1::Amatch::exact); }), 0u);
}

TEST(OutOfMemory, LeavesTheTargetOfDecodingAsItWas) {
    const Bytes earlier = CertBuilder().build();
    auto certificate = decoded<asn1::Certificate>(earlier);
    const std::size_t allocations =
        failEachAllocation([&] { asn1::der::decode(rangeOf(input), certificate); },
                           [&](std::size_t, bool threw) {
                               EXPECT_TRUE(threw);
                               EXPECT_EQ(encoded(certificate), earlier);
                           });
    EXPECT_EQ(allocations, 1u);
    EXPECT_EQ(encoded(certificate), input);
}

TEST(OutOfMemory, LeavesTheTargetOfDecodingBerAsItWas) {
    const Bytes inner(input.begin() + 4, input.end());
    const Bytes ber = fromHex("3080") + inner + fromHex("0000");
    const Bytes earlier = CertBuilder().build();
    auto values = decoded<asn1::Signed>(earlier);
    const std::size_t allocations =
        failEachAllocation([&] { asn1::aux::decodeBer(rangeOf(ber), values, true); },
                           [&](std::size_t, bool threw) {
                               EXPECT_TRUE(threw);
                               EXPECT_EQ(encoded(values), earlier);
                           });
    EXPECT_GT(allocations, 1u);
    EXPECT_EQ(encoded(values), input);
}

TEST(OutOfMemory, MayTakeThePlaceOfADecodingError) {
    const Bytes earlier = CertBuilder().build();
    auto certificate = decoded<asn1::Certificate>(earlier);
    const Bytes broken = octetString(input);
    const std::size_t allocations = failEachAllocation(
        [&] {
            try {
                asn1::der::decode(rangeOf(broken), certificate);
            } catch (const asn1::QuorError_Asn1_Decode&) {
                return;
            }
        },
        [&](std::size_t, bool threw) {
            EXPECT_TRUE(threw);
            EXPECT_EQ(encoded(certificate), earlier);
        });
    EXPECT_GT(allocations, 0u);
}

TEST(OutOfMemory, LeavesValuesThatAreEncodedAsTheyWere) {
    const auto values = decoded<asn1::Signed>(input);
    asn1::Certificate certificate = decoded<asn1::Certificate>(CertBuilder().build());
    const Bytes earlier = encoded(certificate);
    failEachAllocation([&] { certificate = asn1::Certificate(values); },
                       [&](std::size_t, bool threw) {
                           EXPECT_TRUE(threw);
                           EXPECT_EQ(encoded(certificate), earlier);
                       });
    EXPECT_EQ(encoded(certificate), input);
}

TEST(OutOfMemory, LeavesAListAsItWas) {
    const auto extensions = decoded<asn1::Extensions>(sequence({extension("1.2.3", Bytes(40, 1))}));
    const auto item = decoded<asn1::Extension>(extension("1.2.4", Bytes(40, 2)));
    asn1::Extensions list = extensions;
    failEachAllocation([&] { list.append(item); },
                       [&](std::size_t, bool threw) {
                           EXPECT_TRUE(threw);
                           EXPECT_EQ(encoded(list), encoded(extensions));
                       });
    EXPECT_EQ(list.size(), 2u);
}

TEST(OutOfMemory, LeavesASetAsItWas) {
    const auto names = decoded<asn1::RelativeDistinguishedName>(
        set({attribute("CN", utf8String("A name of more than fifteen octets"))}));
    const auto item = decoded<asn1::AttributeTypeAndValue>(attribute("C", printableString("DE")));
    asn1::RelativeDistinguishedName set = names;
    const std::size_t allocations = failEachAllocation([&] { set.append(item); },
                                                       [&](std::size_t, bool threw) {
                                                           EXPECT_TRUE(threw);
                                                           EXPECT_EQ(encoded(set), encoded(names));
                                                       });
    EXPECT_GT(allocations, 0u);
    EXPECT_EQ(set.size(), 2u);
}

TEST(OutOfMemory, ComesOutOfNameText) {
    const auto names = decoded<asn1::RDNSequence>(
        name({{"CN", "A name, long enough"}, {"1.2.3.4", "unknown"}, {"O", "\xC3\xA9, x"}}));
    toText(names); // the table of types is made once
    std::u16string text;
    const std::size_t allocations = failEachAllocation(
        [&] {
            const auto written = toText(names);
            const AllocationCount uncounted;
            text = unitsOf(written);
        },
        [&](std::size_t, bool threw) {
            EXPECT_TRUE(threw);
            EXPECT_EQ(text, u"");
        });
    EXPECT_GT(allocations, 0u);
    EXPECT_EQ(text.substr(0, 9), u"O=\u00E9\\, x, ");
}

} // namespace
} // namespace asn1_test
