// Types that a program adds: what the certificate's own types never show.
#include "owntypes.h"

#include "asn1support.h"
#include "asn1type.h"

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

/// Pairs of pairs, 64 numbers in 127 values.
using Tree = PairOf<PairOf<PairOf<PairOf<PairOf<PairOf<asn1::Integer>>>>>>;

Bytes tree(int depth) {
    return depth == 0 ? integer(5) : sequence({tree(depth - 1), tree(depth - 1)});
}

// The encoder keeps some pieces without taking memory for them, and more with it: each kind of
// value comes to be the first of the latter.
TEST(ManyValues, AreEncodedWhateverTheOneIsThatNeedsMemory) {
    EXPECT_EQ(encoded(decoded<Tree>(tree(6))), tree(6));
    EXPECT_EQ(encoded(decoded<Holding<Tree>>(sequence({tree(6)}))), sequence({tree(6)}));
    EXPECT_EQ(encoded(decoded<Holding<Holding<Tree>>>(sequence({sequence({tree(6)})}))),
              sequence({sequence({tree(6)})}));
}

TEST(ExplicitTag, OfAMemberThatMustBeThereIsChecked) {
    EXPECT_EQ(decoded<HoldingTaggedNumber>(sequence({explicitly(3, integer(5))})).number.value(),
              5);
    HoldingTaggedNumber value;
    EXPECT_EQ(thrownBy([&] { decode(sequence({explicitly(4, integer(5))}), value); }),
              wrongTag("A3", "A4", 2));
    EXPECT_EQ(thrownBy([&] { decode(sequence({integer(5)}), value); }), wrongTag("A3", "02", 2));
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

TEST(EncodedDefault, IsSeenWhateverItsFormIsInBer) {
    const Bytes der = sequence({integer(5)});
    for (const char* member :
         {"01 01 FF", "01 01 01", "80 02 AA BB", "A0 04 04 02 AA BB", "A0 06 04 01 AA 04 01 BB",
          "03 02 07 80", "03 02 07 FF", "23 80 03 02 07 FF 00 00", "81 00", "A1 00"}) {
        const Bytes input = sequence({fromHex(member), integer(5)});
        const auto value = decodedBer<HoldingDefaults>(input);
        EXPECT_FALSE(value.flag || value.text || value.bits || value.note) << member;
        EXPECT_EQ(value.number.value(), 5);
        EXPECT_EQ(encoded(decodedBer<KeptDefaults>(input)), der) << member;
    }
    for (const char* member :
         {"01 01 00", "80 02 AA BC", "80 01 AA", "03 02 07 00", "03 02 06 80", "81 01 00"}) {
        const Bytes input = sequence({fromHex(member), integer(5)});
        EXPECT_EQ(encoded(decodedBer<KeptDefaults>(input)), input) << member;
        EXPECT_EQ(encoded(decodedBer<HoldingDefaults>(input)), input) << member;
    }
}

TEST(EncodedDefault, OfAnyTypeIsRefusedInDer) {
    HoldingDefaults value;
    for (const char* member : {"01 01 FF", "80 02 AA BB", "03 02 07 80", "81 00"})
        EXPECT_EQ(thrownBy([&] {
                      decode(sequence({fromHex(member), integer(5)}), value);
                  }),
                  decodeError("DefaultValuePresentInDEREncoding", 2))
            << member;
}

/// A type with members of each kind, of which some can be declared and others must not compile.
struct Declared : asn1::Sequence {
    std::optional<asn1::Boolean> flag;
    std::optional<asn1::Integer> number;
    std::optional<Nested> list;
    std::optional<TaggedChoice> either;
    std::optional<asn1::OpenType> any;
    std::optional<asn1::Certificate> kept;
    std::optional<asn1::BasicConstraintsSyntax> members;
    asn1::Integer mandatory;
};

template <unsigned char Octet>
constexpr unsigned char octet[] = {Octet};

/// Whether the member may have the DEFAULT of this contents octet.
template <auto Pointer, unsigned char Octet>
concept TakesDefault = requires {
    typename std::bool_constant<(asn1::member<Pointer>("member").withDefault(octet<Octet>), true)>;
};
template <auto Pointer>
concept TakesImplicitTag = requires {
    asn1::member<Pointer>("member").implicitly(0);
};
template <auto Pointer>
concept TakesExplicitTag = requires {
    asn1::member<Pointer>("member").explicitly(0);
};

TEST(DeclaredDefault, IsOfAPrimitiveTypeAndOfAMemberThatMayBeAbsent) {
    EXPECT_TRUE((TakesDefault<&Declared::flag, 0x00>));
    EXPECT_TRUE((TakesDefault<&Declared::number, 5>));
    EXPECT_FALSE((TakesDefault<&Declared::list, 0>)) << "its contents are elements";
    EXPECT_FALSE((TakesDefault<&Declared::either, 0>));
    EXPECT_FALSE((TakesDefault<&Declared::any, 0>));
    EXPECT_FALSE((TakesDefault<&Declared::kept, 0>));
    EXPECT_FALSE((TakesDefault<&Declared::members, 0>));
    EXPECT_FALSE((TakesDefault<&Declared::mandatory, 5>)) << "it would keep what it had before";
}

TEST(DeclaredDefault, OfABooleanIsAsDerHasIt) {
    EXPECT_TRUE((TakesDefault<&Declared::flag, 0xFF>));
    EXPECT_FALSE((TakesDefault<&Declared::flag, 0x01>));
}

TEST(DeclaredImplicitTag, TakesThePlaceOfATag) {
    EXPECT_TRUE((TakesImplicitTag<&Declared::flag>));
    EXPECT_TRUE((TakesImplicitTag<&Declared::list>));
    EXPECT_TRUE((TakesImplicitTag<&Declared::members>));
    EXPECT_FALSE((TakesImplicitTag<&Declared::either>));
    EXPECT_FALSE((TakesImplicitTag<&Declared::any>));
    EXPECT_FALSE((TakesImplicitTag<&Declared::kept>));
    EXPECT_TRUE((TakesExplicitTag<&Declared::either>));
    EXPECT_TRUE((TakesExplicitTag<&Declared::kept>));
}

SetOfIntegers setOf(std::initializer_list<int> numbers) {
    SetOfIntegers set;
    set.clear();
    for (const int number : numbers)
        set.append(asn1::Integer(number));
    return set;
}

TEST(SetThatAProgramBuilds, IsInTheOrderOfDer) {
    const Bytes expected = set({integer(1), integer(2), integer(3), integer(256)});
    EXPECT_EQ(encoded(setOf({1, 2, 3, 256})), expected);
    EXPECT_EQ(encoded(setOf({256, 3, 2, 1})), expected);
    EXPECT_EQ(encoded(setOf({3, 256, 1, 2})), expected);
    EXPECT_EQ(encoded(setOf({2, 1, 2})), set({integer(1), integer(2), integer(2)}));
    SetOfIntegers fromNull;
    fromNull.append(asn1::Integer(2));
    fromNull.append(asn1::Integer(1));
    EXPECT_EQ(encoded(fromNull), set({integer(1), integer(2)}));
}

TEST(SetThatWasDecoded, KeepsItsOrder) {
    const Bytes descending = set({integer(3), integer(2), integer(9)});
    auto numbers = decoded<SetOfIntegers>(descending);
    EXPECT_EQ(encoded(numbers), descending);
    const SetOfIntegers copy = numbers;
    EXPECT_EQ(encoded(copy), descending);
    // What is added later comes before the first one that has to follow it.
    numbers.append(asn1::Integer(5));
    EXPECT_EQ(encoded(numbers), set({integer(3), integer(2), integer(5), integer(9)}));
    EXPECT_EQ(encoded(copy), descending);
}

TEST(KeptValueWithoutMandatoryMembers, IsNamedItselfIfItIsMissing) {
    EXPECT_EQ(thrownBy([] { encoded(KeptConstraints()); }),
              missingField("KeptConstraints", "KeptConstraints"));
    const Bytes none = sequence({});
    EXPECT_EQ(encoded(decoded<KeptConstraints>(none)), none);
}

} // namespace
} // namespace asn1_test
