// SEQUENCE OF and SET OF, and what is found in names.
#include "asn1support.h"
#include "oids.h"

namespace asn1_test {
namespace {

using namespace testsupport;

asn1::RDNSequence namesOf(const Bytes& encoding) {
    return decoded<asn1::RDNSequence>(encoding);
}

std::string valueOf(const asn1::AttributeTypeAndValue& attribute) {
    const Range encoding = attribute.value.encoding();
    return std::string(encoding.begin() + 2, encoding.end());
}

Thrown noItem(std::size_t index, std::size_t size) {
    return event<asn1::QuorError_Asn1_InvalidItemIndex>(
        {{"INDEX", std::to_string(index)}, {"SIZE", std::to_string(size)}});
}

TEST(List, GivesItsItemsInTheirOrder) {
    const auto names = namesOf(name({{"C", "DE"}, {"O", "Example"}, {"CN", "Name"}}));
    std::vector<std::string> values;
    for (const asn1::RelativeDistinguishedName& rdn : names)
        for (const asn1::AttributeTypeAndValue& attribute : rdn)
            values.push_back(valueOf(attribute));
    EXPECT_EQ(values, (std::vector<std::string>{"DE", "Example", "Name"}));
    EXPECT_EQ(names.size(), 3u);
    EXPECT_FALSE(names.empty());
}

TEST(List, GivesItemsByTheirIndex) {
    const auto names = namesOf(name({{"C", "DE"}, {"O", "Example"}, {"CN", "Name"}}));
    EXPECT_EQ(valueOf(names[0][0]), "DE");
    EXPECT_EQ(valueOf(names[2][0]), "Name");
}

TEST(List, HasNoItemBeyondItsEnd) {
    const auto names = namesOf(name({{"C", "DE"}, {"O", "Example"}}));
    EXPECT_EQ(thrownBy([&] { names[2]; }), noItem(2, 2));
    EXPECT_EQ(thrownBy([&] { names[99]; }), noItem(99, 2));
    EXPECT_EQ(thrownBy([&] { namesOf(name({}))[0]; }), noItem(0, 0));
    EXPECT_EQ(thrownBy([] { asn1::RDNSequence()[0]; }), noItem(0, 0));
}

TEST(List, HasIteratorsThatMoveOnOneByOne) {
    const auto names = namesOf(name({{"C", "DE"}, {"O", "Example"}}));
    auto position = names.begin();
    const auto first = position++;
    EXPECT_TRUE(first == names.begin());
    EXPECT_FALSE(position == first);
    EXPECT_EQ(valueOf((*position)[0]), "Example");
    EXPECT_TRUE(++position == names.end());
}

TEST(List, WithoutValueHasNoItems) {
    const asn1::Extensions none;
    EXPECT_FALSE(none.hasValue());
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.size(), 0u);
    EXPECT_TRUE(none.begin() == none.end());
}

TEST(List, GrowsAtItsEnd) {
    asn1::Extensions extensions;
    Bytes expected;
    for (unsigned i = 0; i != 20; ++i) {
        const Bytes encoding = extension("1.2." + std::to_string(i), Bytes(i, 0x11));
        extensions.append(decoded<asn1::Extension>(encoding));
        expected = expected + encoding;
        EXPECT_EQ(extensions.size(), i + 1);
        EXPECT_EQ(bytesOf(extensions.contents()), expected);
    }
    EXPECT_EQ(encoded(extensions), element(0x30, expected));
}

TEST(List, OfASetIsInTheOrderOfDerIfAProgramBuildsIt) {
    const Bytes country = attribute("C", printableString("DE"));
    const Bytes name = attribute("CN", utf8String("Name"));
    asn1::RelativeDistinguishedName built;
    built.append(decoded<asn1::AttributeTypeAndValue>(name));
    built.append(decoded<asn1::AttributeTypeAndValue>(country));
    EXPECT_EQ(encoded(built), set({country, name}));

    // Names are signed as they are, so what was decoded stays in the order of its encoding.
    const Bytes input = fullCertificate().subject(nameOf({set({name, country})})).build();
    const auto certificate = decoded<asn1::Certificate>(input);
    asn1::Signed values = certificate.values();
    EXPECT_EQ(encoded(asn1::Certificate(values)), input);
    values.toBeSigned.subject.rdnSequence.append(built);
    EXPECT_EQ(
        encoded(asn1::Certificate(values)),
        fullCertificate().subject(nameOf({set({name, country}), set({country, name})})).build());
}

TEST(List, GrowsWithoutChangingItsCopies) {
    asn1::RDNSequence names = namesOf(name({{"O", "An organisation with a long name"}}));
    const asn1::RDNSequence copy = names;
    names.append(names[0]);
    EXPECT_EQ(names.size(), 2u);
    EXPECT_EQ(copy.size(), 1u);
    EXPECT_EQ(encoded(copy), name({{"O", "An organisation with a long name"}}));
}

TEST(List, IsUnchangedWhenAnItemHasNoValue) {
    asn1::RDNSequence names = namesOf(name({{"C", "DE"}}));
    EXPECT_EQ(thrownBy([&] { names.append(asn1::RelativeDistinguishedName()); }),
              missingField("RelativeDistinguishedName", "RelativeDistinguishedName"));
    EXPECT_EQ(encoded(names), name({{"C", "DE"}}));
}

TEST(List, IsClearedToNoItems) {
    asn1::RDNSequence names = namesOf(name({{"C", "DE"}}));
    names.clear();
    EXPECT_TRUE(names.hasValue());
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(encoded(names), sequence({}));
    asn1::RDNSequence fresh;
    fresh.clear();
    EXPECT_TRUE(fresh.hasValue());
}

TEST(List, GivesItemsThatOutliveIt) {
    asn1::Extension item;
    {
        const auto extensions = decoded<asn1::Extensions>(
            sequence({extension("1.2.3", Bytes(50, 0x22), true), keyUsage({1})}));
        item = extensions[0];
    }
    EXPECT_EQ(encoded(item), extension("1.2.3", Bytes(50, 0x22), true));
}

TEST(FindingAnAttribute, CountsOccurrencesFromOneInEncodingOrder) {
    const auto names = namesOf(
        nameOf({set({attribute("CN", utf8String("first"))}),
                set({attribute("O", utf8String("other")), attribute("CN", utf8String("second"))}),
                set({attribute("CN", utf8String("third"))})}));
    ASSERT_TRUE(names.find(asn1::id_at_commonName, 1));
    EXPECT_EQ(valueOf(*names.find(asn1::id_at_commonName, 1)), "first");
    EXPECT_EQ(valueOf(*names.find(asn1::id_at_commonName, 2)), "second");
    EXPECT_EQ(valueOf(*names.find(asn1::id_at_commonName, 3)), "third");
    EXPECT_FALSE(names.find(asn1::id_at_commonName, 4));
    EXPECT_FALSE(names.find(asn1::id_at_commonName, 0));
}

TEST(FindingAnAttribute, FindsNoneOfAnotherType) {
    const auto names = namesOf(name({{"CN", "Name"}}));
    EXPECT_FALSE(names.find(asn1::ObjectIdentifier("2.5.4.10"), 1));
    EXPECT_FALSE(names.find(asn1::ObjectIdentifier("2.5.4"), 1));
    EXPECT_FALSE(names.find(asn1::ObjectIdentifier("2.5.4.3.1"), 1));
    EXPECT_FALSE(names.find(asn1::ObjectIdentifier(), 1));
}

TEST(FindingAnAttribute, FindsNoneInNoNames) {
    EXPECT_FALSE(asn1::RDNSequence().find(asn1::id_at_commonName, 1));
    EXPECT_FALSE(namesOf(name({})).find(asn1::id_at_commonName, 1));
    EXPECT_FALSE(namesOf(nameOf({set({})})).find(asn1::id_at_commonName, 1));
}

} // namespace
} // namespace asn1_test
