// Types that a program could add to those of a certificate.
#pragma once

#include "asn1type.h"
#include "certificate.h"
#include "sequenceof.h"

namespace asn1_test {

/// A value whose type is of no class that there is.
class OfUnknownClass : public asn1::Asn1 {
public:
    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// A SEQUENCE with such a value as its second member.
class HoldingUnknownClass : public asn1::Sequence {
public:
    asn1::Integer number;
    OfUnknownClass unknown;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// A list of lists of lists.
class Nested : public asn1::ListOf<Nested> {
public:
    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// CHOICE { number [0] EXPLICIT INTEGER, flag [1] IMPLICIT BOOLEAN, text UTF8String }
class TaggedChoice : public asn1::Choice {
public:
    asn1::Integer number;
    asn1::Boolean flag;
    asn1::UTF8String text;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// SEQUENCE { list [1] IMPLICIT SEQUENCE OF Nested }
class HoldingTaggedList : public asn1::Sequence {
public:
    Nested list;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// SEQUENCE { number [3] EXPLICIT INTEGER }
class HoldingTaggedNumber : public asn1::Sequence {
public:
    asn1::Integer number;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// SEQUENCE { inner Inner }
template <class Inner>
class Holding : public asn1::Sequence {
public:
    Inner inner;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override { return asn1Type; }
};
template <class Inner>
constexpr asn1::Member holdingMembers[] = {asn1::member<&Holding<Inner>::inner>("inner")};
template <class Inner>
constinit const asn1::Type Holding<Inner>::asn1Type = asn1::sequence("Holding",
                                                                     holdingMembers<Inner>);

/// SEQUENCE { first Inner, second Inner }
template <class Inner>
class PairOf : public asn1::Sequence {
public:
    Inner first;
    Inner second;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override { return asn1Type; }
};
template <class Inner>
constexpr asn1::Member pairMembers[] = {asn1::member<&PairOf<Inner>::first>("first"),
                                        asn1::member<&PairOf<Inner>::second>("second")};
template <class Inner>
constinit const asn1::Type PairOf<Inner>::asn1Type = asn1::sequence("PairOf", pairMembers<Inner>);

/// SEQUENCE { inner [5] EXPLICIT TaggedChoice OPTIONAL, rest ANY OPTIONAL }
class HoldingChoice : public asn1::Sequence {
public:
    std::optional<TaggedChoice> inner;
    std::optional<asn1::OpenType> rest;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// SEQUENCE { either TaggedChoice OPTIONAL, number INTEGER }
class HoldingOptionalChoice : public asn1::Sequence {
public:
    std::optional<TaggedChoice> either;
    asn1::Integer number;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// SEQUENCE { certificate Certificate OPTIONAL, number INTEGER }
class HoldingCertificate : public asn1::Sequence {
public:
    std::optional<asn1::Certificate> certificate;
    asn1::Integer number;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// SEQUENCE { first Signed, second Signed }: more values than any certificate has.
class TwoCertificates : public asn1::Sequence {
public:
    asn1::Signed first;
    asn1::Signed second;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// SEQUENCE { flag BOOLEAN DEFAULT TRUE, text [0] IMPLICIT OCTET STRING DEFAULT 'AABB'H,
///   bits BIT STRING DEFAULT '1'B, note [1] IMPLICIT OCTET STRING DEFAULT ''H, number INTEGER }
class HoldingDefaults : public asn1::Sequence {
public:
    std::optional<asn1::Boolean> flag;
    std::optional<asn1::OctetString> text;
    std::optional<asn1::BitString> bits;
    std::optional<asn1::OctetString> note;
    asn1::Integer number;

    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// The same, kept as its encoding.
class KeptDefaults : public asn1::EncodedValue {
public:
    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// SET OF INTEGER
class SetOfIntegers : public asn1::ListOf<asn1::Integer> {
public:
    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

/// BasicConstraints, kept as their encoding. None of their members must be there.
class KeptConstraints : public asn1::EncodedValue {
public:
    static const asn1::Type asn1Type;
    const asn1::Type& type() const noexcept override;
};

} // namespace asn1_test
