// Types that a program could add to those of a certificate.
#include "owntypes.h"

#include "asn1type.h"

namespace asn1_test {

constinit const asn1::Type OfUnknownClass::asn1Type{"OfUnknownClass",
                                                    static_cast<asn1::TypeClass>(99), 0x05};
const asn1::Type& OfUnknownClass::type() const noexcept {
    return asn1Type;
}

static constexpr asn1::Member holdingUnknownClassMembers[] = {
    asn1::member<&HoldingUnknownClass::number>("number"),
    asn1::member<&HoldingUnknownClass::unknown>("unknown"),
};
constinit const asn1::Type HoldingUnknownClass::asn1Type =
    asn1::sequence("HoldingUnknownClass", holdingUnknownClassMembers);
const asn1::Type& HoldingUnknownClass::type() const noexcept {
    return asn1Type;
}

constinit const asn1::Type Nested::asn1Type = asn1::sequenceOf("Nested", Nested::asn1Type);
const asn1::Type& Nested::type() const noexcept {
    return asn1Type;
}

static constexpr asn1::Member taggedChoiceAlternatives[] = {
    asn1::member<&TaggedChoice::number>("number").explicitly(0),
    asn1::member<&TaggedChoice::flag>("flag").implicitly(1),
    asn1::member<&TaggedChoice::text>("text"),
};
constinit const asn1::Type TaggedChoice::asn1Type =
    asn1::choice("TaggedChoice", taggedChoiceAlternatives);
const asn1::Type& TaggedChoice::type() const noexcept {
    return asn1Type;
}

static constexpr asn1::Member holdingTaggedListMembers[] = {
    asn1::member<&HoldingTaggedList::list>("list").implicitly(1),
};
constinit const asn1::Type HoldingTaggedList::asn1Type =
    asn1::sequence("HoldingTaggedList", holdingTaggedListMembers);
const asn1::Type& HoldingTaggedList::type() const noexcept {
    return asn1Type;
}

static constexpr asn1::Member holdingTaggedNumberMembers[] = {
    asn1::member<&HoldingTaggedNumber::number>("number").explicitly(3),
};
constinit const asn1::Type HoldingTaggedNumber::asn1Type =
    asn1::sequence("HoldingTaggedNumber", holdingTaggedNumberMembers);
const asn1::Type& HoldingTaggedNumber::type() const noexcept {
    return asn1Type;
}

static constexpr asn1::Member holdingChoiceMembers[] = {
    asn1::member<&HoldingChoice::inner>("inner").explicitly(5),
    asn1::member<&HoldingChoice::rest>("rest"),
};
constinit const asn1::Type HoldingChoice::asn1Type =
    asn1::sequence("HoldingChoice", holdingChoiceMembers);
const asn1::Type& HoldingChoice::type() const noexcept {
    return asn1Type;
}

static constexpr asn1::Member holdingOptionalChoiceMembers[] = {
    asn1::member<&HoldingOptionalChoice::either>("either"),
    asn1::member<&HoldingOptionalChoice::number>("number"),
};
constinit const asn1::Type HoldingOptionalChoice::asn1Type =
    asn1::sequence("HoldingOptionalChoice", holdingOptionalChoiceMembers);
const asn1::Type& HoldingOptionalChoice::type() const noexcept {
    return asn1Type;
}

static constexpr asn1::Member holdingCertificateMembers[] = {
    asn1::member<&HoldingCertificate::certificate>("certificate"),
    asn1::member<&HoldingCertificate::number>("number"),
};
constinit const asn1::Type HoldingCertificate::asn1Type =
    asn1::sequence("HoldingCertificate", holdingCertificateMembers);
const asn1::Type& HoldingCertificate::type() const noexcept {
    return asn1Type;
}

static constexpr asn1::Member twoCertificatesMembers[] = {
    asn1::member<&TwoCertificates::first>("first"),
    asn1::member<&TwoCertificates::second>("second"),
};
constinit const asn1::Type TwoCertificates::asn1Type =
    asn1::sequence("TwoCertificates", twoCertificatesMembers);
const asn1::Type& TwoCertificates::type() const noexcept {
    return asn1Type;
}

static constexpr unsigned char trueContents[] = {0xFF};
static constexpr unsigned char textContents[] = {0xAA, 0xBB};
static constexpr unsigned char bitsContents[] = {0x07, 0x80};
static constexpr asn1::Member holdingDefaultsMembers[] = {
    asn1::member<&HoldingDefaults::flag>("flag").withDefault(trueContents),
    asn1::member<&HoldingDefaults::text>("text").implicitly(0).withDefault(textContents),
    asn1::member<&HoldingDefaults::bits>("bits").withDefault(bitsContents),
    asn1::member<&HoldingDefaults::note>("note").implicitly(1).withDefault({}),
    asn1::member<&HoldingDefaults::number>("number"),
};
constinit const asn1::Type HoldingDefaults::asn1Type =
    asn1::sequence("HoldingDefaults", holdingDefaultsMembers);
const asn1::Type& HoldingDefaults::type() const noexcept {
    return asn1Type;
}

constinit const asn1::Type KeptDefaults::asn1Type{
    "KeptDefaults", asn1::TypeClass::kept, asn1::tag::none, {}, &HoldingDefaults::asn1Type};
const asn1::Type& KeptDefaults::type() const noexcept {
    return asn1Type;
}

constinit const asn1::Type SetOfIntegers::asn1Type =
    asn1::setOf("SetOfIntegers", asn1::Integer::asn1Type);
const asn1::Type& SetOfIntegers::type() const noexcept {
    return asn1Type;
}

constinit const asn1::Type KeptConstraints::asn1Type{"KeptConstraints",
                                                     asn1::TypeClass::kept,
                                                     asn1::tag::none,
                                                     {},
                                                     &asn1::BasicConstraintsSyntax::asn1Type};
const asn1::Type& KeptConstraints::type() const noexcept {
    return asn1Type;
}

} // namespace asn1_test
