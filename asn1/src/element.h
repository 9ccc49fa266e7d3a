// One element of an encoding: identifier, length, contents (X.690 8.1).
#pragma once

#include "asn1type.h"
#include "octets.h"

#include <cstddef>

namespace asn1 {

enum class Rules : unsigned char { der, ber };

enum class ElementFault : unsigned char {
    none,
    malformed,  ///< cut short, or not in the form that the rules ask for
    indefinite, ///< a length of the indefinite form where DER is expected
};

struct Element {
    const unsigned char* begin;
    const unsigned char* contents;
    const unsigned char* contentsEnd;
    const unsigned char* end; ///< behind the end-of-contents octets, if there are any
    bool shortestForm;        ///< whether identifier and length are as DER writes them

    unsigned char identifier() const noexcept { return *begin; }
    BufferRange<unsigned char> contentsRange() const noexcept { return {contents, contentsEnd}; }
    BufferRange<unsigned char> range() const noexcept { return {begin, end}; }
};

/// Parses the element at `position`. With a fault, `element` is not filled.
ElementFault parseLongElement(const unsigned char* position, const unsigned char* end, Rules rules,
                              Element& element) noexcept;

inline ElementFault parseElement(const unsigned char* position, const unsigned char* end,
                                 Rules rules, Element& element) noexcept {
    // Nine of ten elements of a certificate have one identifier octet and one length octet.
    if (end - position >= 2 && position[1] < 0x80 && (position[0] & 0x1F) != 0x1F &&
        tag::masked(position[0]) != 0 && position[1] <= end - position - 2) {
        const unsigned char* contents = position + 2;
        const unsigned char* contentsEnd = contents + position[1];
        element = {position, contents, contentsEnd, contentsEnd, true};
        return ElementFault::none;
    }
    return parseLongElement(position, end, rules, element);
}

/// The element at `position` of an encoding that was checked before.
inline Element elementAt(const unsigned char* position, const unsigned char* end) noexcept {
    Element element{position, end, end, end, true};
    parseElement(position, end, Rules::der, element);
    return element;
}

/// The identifier octet with which a member begins; `tag::none` for an untagged CHOICE or open
/// type.
inline unsigned char identifierOf(const Member& member) noexcept {
    return member.tagging == Tagging::none ? member.type->identifier : member.taggedIdentifier;
}

inline bool identifierFits(const Member& member, unsigned char found) noexcept;

/// Whether an untagged value of the type can begin with this identifier octet. The constructed
/// bit is not looked at.
inline bool identifierFits(const Type& type, unsigned char found) noexcept {
    switch (type.typeClass) {
    case TypeClass::openType:
        return true;
    case TypeClass::choice:
        for (const Member& alternative : type.members)
            if (identifierFits(alternative, found))
                return true;
        return false;
    case TypeClass::kept:
        return identifierFits(*type.element, found);
    default:
        return tag::masked(type.identifier) == tag::masked(found);
    }
}

/// The same for a member or an alternative, with the tag that it has there.
inline bool identifierFits(const Member& member, unsigned char found) noexcept {
    if (member.tagging != Tagging::none)
        return tag::masked(member.taggedIdentifier) == tag::masked(found);
    return identifierFits(*member.type, found);
}

/// Whether the member, rather than one behind it, stands at `position`.
inline bool isPresent(const Member& member, const unsigned char* position,
                      const unsigned char* end) noexcept {
    return position != end && identifierFits(member, *position);
}

} // namespace asn1
