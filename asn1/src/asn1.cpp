// What all ASN.1 values have in common.
#include "asn1.h"

#include "asn1type.h"
#include "makeevent.h"
#include "unknownclass.h"

#include <algorithm>
#include <compare>
#include <cstring>

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\asn1.cpp";

using Range = BufferRange<unsigned char>;
using Order = std::strong_ordering;

Order compareBytes(Range a, Range b) noexcept {
    return std::lexicographical_compare_three_way(a.begin(), a.end(), b.begin(), b.end());
}

/// No value comes before any value, which may be one of no bytes.
Order compareOctets(const Octets& a, const Octets& b) noexcept {
    if (a.isNull() || b.isNull())
        return !a.isNull() <=> !b.isNull();
    return compareBytes(a.range(), b.range());
}

Order compare(const Asn1& a, const Asn1& b);

/// A member as it is compared: absent ones with a DEFAULT have that value.
Order compareMember(const Member& member, const Asn1* a, const Asn1* b) {
    if (member.presence == Presence::defaulted && (a == nullptr) != (b == nullptr)) {
        const auto& present = static_cast<const ContentsValue&>(a ? *a : *b);
        const Order order = present.hasValue()
                                ? compareBytes(present.contents(), member.defaultContents)
                                : Order::less;
        return a ? order : 0 <=> order;
    }
    if (!a || !b)
        return (a != nullptr) <=> (b != nullptr);
    return compare(*a, *b);
}

Order compareMembers(std::span<const Member> members, const Asn1& a, const Asn1& b) {
    for (const Member& member : members)
        if (const Order order = compareMember(member, member.find(a), member.find(b)); order != 0)
            return order;
    return Order::equal;
}

Order compareChoices(const Choice& a, const Choice& b) {
    if (const auto order = a.chosen() <=> b.chosen(); order != 0)
        return order;
    const auto alternatives = a.type().members;
    const auto index = static_cast<std::size_t>(a.chosen());
    return index < alternatives.size()
               ? compare(*alternatives[index].find(a), *alternatives[index].find(b))
               : Order::equal;
}

Order compare(const Asn1& a, const Asn1& b) {
    if (&a.type() != &b.type())
        return std::strcmp(a.type().name, b.type().name) < 0 ? Order::less : Order::greater;
    switch (a.type().form) {
    case Form::alternatives:
        return compareChoices(static_cast<const Choice&>(a), static_cast<const Choice&>(b));
    case Form::members:
        return compareMembers(a.type().members, a, b);
    case Form::openElement:
    case Form::kept:
        return compareOctets(static_cast<const EncodedValue&>(a).encodingOctets(),
                             static_cast<const EncodedValue&>(b).encodingOctets());
    case Form::primitive:
    case Form::list:
        return compareOctets(static_cast<const ContentsValue&>(a).contentsOctets(),
                             static_cast<const ContentsValue&>(b).contentsOctets());
    default:
        throw unknownClass(sourceFile, a.type());
    }
}

} // namespace

Asn1::~Asn1() = default;

std::int16_t Asn1::cmp(const Asn1& other, Amatch mode) const {
    if (mode != Amatch::exact)
        throw korv::makeEvent<QuorError_Asn1_InvalidCall>(sourceFile,
                                                          {{L"CAUSE", L"UnknownMatchMode"}});
    const Order order = compare(*this, other);
    return static_cast<std::int16_t>(order < 0 ? -1 : order > 0);
}

} // namespace asn1
