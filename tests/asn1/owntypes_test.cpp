// Types that a program adds: what the certificate's own types never show.
#include "owntypes.h"

#include "asn1support.h"

namespace asn1_test {
namespace {

using namespace testsupport;

const Thrown unknownClass =
    event<asn1::QuorError_Asn1_Encode>({{"CAUSE", "UnknwonClass"}, {"CLASS", "99"}});

TEST(TypeOfNoKnownClass, IsNotDecoded) {
    OfUnknownClass value;
    EXPECT_EQ(thrownBy([&] { decode(null(), value); }), unknownClass);
    EXPECT_EQ(thrownBy([&] { decodeBer(null(), value); }), unknownClass);
}

TEST(TypeOfNoKnownClass, IsNotEncoded) {
    EXPECT_EQ(thrownBy([] { encoded(OfUnknownClass()); }), unknownClass);
}

TEST(TypeOfNoKnownClass, IsNotDecodedAsMember) {
    HoldingUnknownClass value;
    value.number = asn1::Integer(7);
    EXPECT_EQ(thrownBy([&] { decode(sequence({integer(1), null()}), value); }), unknownClass);
    EXPECT_EQ(value.number.value(), 7);
}

TEST(TypeOfNoKnownClass, IsNotEncodedAsMember) {
    HoldingUnknownClass value;
    value.number = asn1::Integer(7);
    EXPECT_EQ(thrownBy([&] { encoded(value); }), unknownClass);
}

TEST(TypeOfNoKnownClass, IsNotCompared) {
    EXPECT_EQ(thrownBy([] { OfUnknownClass().cmp(OfUnknownClass(), asn1::Amatch::exact); }),
              unknownClass);
}

TEST(ListOfItself, IsDecodedUpToThirtyTwoDeep) {
    const Bytes deepest = nested(0x30, 32);
    EXPECT_EQ(encoded(decoded<Nested>(deepest)), deepest);
    EXPECT_EQ(encoded(decodedBer<Nested>(deepest)), deepest);
}

TEST(ListOfItself, IsRefusedWhereItNestsDeeper) {
    Nested value;
    // Each of the outer 32 has two octets before its contents.
    EXPECT_EQ(thrownBy([&] { decode(nested(0x30, 33), value); }), mismatch(64));
    EXPECT_EQ(thrownBy([&] { decodeBer(nested(0x30, 33), value); }), mismatch(64));
}

TEST(ListOfItself, IsRefusedTenThousandDeep) {
    Nested value;
    EXPECT_EQ(thrownBy([&] { decode(nested(0x30, 10'000), value); }).type,
              std::type_index(typeid(asn1::QuorError_Asn1_Decode)));
    EXPECT_FALSE(value.hasValue());
}

TEST(ListOfItself, IsWrittenAsDerFromThirtyTwoIndefiniteLengths) {
    Bytes ber;
    for (int i = 0; i != 32; ++i)
        ber = fromHex("3080") + ber + fromHex("0000");
    EXPECT_EQ(encoded(decodedBer<Nested>(ber)), nested(0x30, 32));
}

TEST(TaggedAlternative, IsReadAndWrittenWithAnExplicitTag) {
    const Bytes encoding = explicitly(0, integer(5));
    const auto value = decoded<TaggedChoice>(encoding);
    EXPECT_EQ(value.chosen(), 0);
    EXPECT_EQ(value.number.value(), 5);
    EXPECT_EQ(encoded(value), encoding);
}

TEST(TaggedAlternative, IsReadAndWrittenWithAnImplicitTag) {
    const Bytes encoding = fromHex("81 01 FF");
    const auto value = decoded<TaggedChoice>(encoding);
    EXPECT_EQ(value.chosen(), 1);
    EXPECT_TRUE(value.flag.value());
    EXPECT_EQ(encoded(value), encoding);
}

TEST(TaggedAlternative, NeedsTheConstructedBitOfItsExplicitTag) {
    TaggedChoice value;
    EXPECT_EQ(thrownBy([&] { decode(element(0x80, integer(5)), value); }),
              decodeError("ExplicitTagWithoutConstructorBit", 0));
}

TEST(TaggedAlternative, IsNamedAmongTheExpectedTags) {
    TaggedChoice value;
    EXPECT_EQ(thrownBy([&] { decode(integer(5), value); }), wrongTag("A0 81 0C", "02", 0));
}

TEST(ImplicitTag, KeepsTheConstructedBitOfItsType) {
    const Bytes encoding = sequence({explicitly(1, sequence({}))});
    const auto value = decoded<HoldingTaggedList>(encoding);
    EXPECT_EQ(value.list.size(), 1u);
    EXPECT_EQ(encoded(value), encoding);
}

TEST(TaggedChoiceWithinATag, IsReadAndWritten) {
    const Bytes encoding = sequence({explicitly(5, explicitly(0, integer(5))), null()});
    const auto value = decoded<HoldingChoice>(encoding);
    ASSERT_TRUE(value.inner);
    EXPECT_EQ(value.inner->number.value(), 5);
    EXPECT_EQ(encoded(*value.rest), null());
    EXPECT_EQ(encoded(value), encoding);
}

TEST(OptionalChoice, IsThereIfOneOfItsAlternativesIs) {
    for (const Bytes& alternative :
         {explicitly(0, integer(5)), fromHex("81 01 FF"), utf8String("text")}) {
        const Bytes encoding = sequence({alternative, integer(7)});
        const auto value = decoded<HoldingOptionalChoice>(encoding);
        EXPECT_TRUE(value.either);
        EXPECT_EQ(encoded(value), encoding);
    }
}

TEST(OptionalChoice, IsAbsentIfNoneOfItsAlternativesFollows) {
    const Bytes encoding = sequence({integer(7)});
    const auto value = decoded<HoldingOptionalChoice>(encoding);
    EXPECT_FALSE(value.either);
    EXPECT_EQ(value.number.value(), 7);
    EXPECT_EQ(encoded(value), encoding);
}

TEST(OptionalOpenType, TakesWhateverFollows) {
    const Bytes encoding = sequence({integer(5)});
    const auto value = decoded<HoldingChoice>(encoding);
    EXPECT_FALSE(value.inner);
    EXPECT_EQ(encoded(*value.rest), integer(5));
    EXPECT_EQ(encoded(value), encoding);
}

TEST(OptionalMembers, MayAllBeAbsent) {
    const auto value = decoded<HoldingChoice>(sequence({}));
    EXPECT_FALSE(value.inner);
    EXPECT_FALSE(value.rest);
    EXPECT_EQ(encoded(value), sequence({}));
}

TEST(CertificateAsMember, IsKeptAsItsEncoding) {
    const Bytes inner = fullCertificate().build();
    const Bytes encoding = sequence({inner, integer(5)});
    const auto value = decoded<HoldingCertificate>(encoding);
    ASSERT_TRUE(value.certificate);
    EXPECT_EQ(encoded(*value.certificate), inner);
    EXPECT_EQ(value.certificate->serialNumber().value(), 0x1234567);
    EXPECT_EQ(value.number.value(), 5);
    EXPECT_EQ(encoded(value), encoding);
}

TEST(CertificateAsMember, MayBeAbsentButNotWithoutValue) {
    auto value = decoded<HoldingCertificate>(sequence({integer(5)}));
    EXPECT_FALSE(value.certificate);
    EXPECT_EQ(encoded(value), sequence({integer(5)}));
    value.certificate.emplace();
    EXPECT_EQ(thrownBy([&] { encoded(value); }), missingField("serialNumber", "Certificate"));
}

TEST(CertificateAsMember, IsCheckedWithItsOwner) {
    HoldingCertificate value;
    const Bytes v1 = fullCertificate().version(explicitly(0, integer(0))).build();
    const Bytes encoding = sequence({v1, integer(5)});
    EXPECT_EQ(thrownBy([&] { decode(encoding, value); }),
              decodeError("DefaultValuePresentInDEREncoding",
                          offsetOf(explicitly(0, integer(0)), encoding)));
    EXPECT_FALSE(value.certificate);
}

TEST(TwoCertificatesTakenApart, AreEncodedAsTheyWere) {
    const Bytes first = fullCertificate().build();
    const Bytes second = fullCertificate().version({}).build();
    const Bytes encoding = sequence({first, second});
    EXPECT_EQ(encoded(decoded<TwoCertificates>(encoding)), encoding);
}

TEST(KeptValueWithoutMandatoryMembers, IsNamedItselfIfItIsMissing) {
    EXPECT_EQ(thrownBy([] { encoded(KeptConstraints()); }),
              missingField("KeptConstraints", "KeptConstraints"));
    const Bytes none = sequence({});
    EXPECT_EQ(encoded(decoded<KeptConstraints>(none)), none);
}

} // namespace
} // namespace asn1_test
