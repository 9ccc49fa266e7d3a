// One element of an encoding: identifier, length, contents (X.690 8.1).
#pragma once

#include "asn1type.h"
#include "octets.h"

#include <cstddef>

namespace asn1 {

/// What an encoding must keep to.
enum class Rules : unsigned char { der, ber };

/// Why bytes do not begin with an element.
enum class ElementFault : unsigned char {
    none,
    malformed,  ///< cut short, or not in the form that the rules ask for
    indefinite, ///< a length of the indefinite form where DER is expected
};

/// Where an element and its parts lie within bytes that somebody else owns.
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

/// `parseElement` of an element that `parseShortElement` does not take.
ElementFault parseLongElement(const unsigned char* position, const unsigned char* end, Rules rules,
                              Element& element) noexcept;

/// Parses an element with one identifier octet, which is known to be valid, and up to three length
/// octets in their shortest form, as all of a usual certificate are; false for any other.
inline bool parseShortLength(const unsigned char* position, const unsigned char* end,
                             Element& element) noexcept {
    const std::ptrdiff_t room = end - position;
    if (room < 2)
        return false;
    const unsigned char* contents = position + 2;
    std::ptrdiff_t length = position[1];
    if (length >= 0x80) {
        if (length == 0x81 && room >= 3 && position[2] >= 0x80) {
            length = position[2];
            contents += 1;
        } else if (length == 0x82 && room >= 4 && position[2] != 0) {
            length = position[2] << 8 | position[3];
            contents += 2;
        } else
            return false;
    }
    if (length > end - contents)
        return false;
    element = {position, contents, contents + length, contents + length, true};
    return true;
}

/// The same where nothing is known of the identifier.
inline bool parseShortElement(const unsigned char* position, const unsigned char* end,
                              Element& element) noexcept {
    return position != end && (*position & 0x1F) != 0x1F && tag::masked(*position) != 0 &&
           parseShortLength(position, end, element);
}

/// Parses the element at `position`, of whatever form. With a fault, `element` is not filled.
inline ElementFault parseElement(const unsigned char* position, const unsigned char* end,
                                 Rules rules, Element& element) noexcept {
    return parseShortElement(position, end, element)
               ? ElementFault::none
               : parseLongElement(position, end, rules, element);
}

/// `elementAt` of an element that `parseShortElement` does not take.
Element longElementAt(const unsigned char* position, const unsigned char* end) noexcept;

/// The element at `position` of an encoding that was checked before. Of anything else it is
/// empty, and does not go beyond `end`.
inline Element elementAt(const unsigned char* position, const unsigned char* end) noexcept {
    Element element;
    return parseShortElement(position, end, element) ? element : longElementAt(position, end);
}

/// The identifier octet with which a member begins; `tag::none` for an untagged CHOICE or open
/// type.
inline unsigned char identifierOf(const Member& member) noexcept {
    if (member.tagging == Tagging::none)
        return member.type->identifier;
    // An implicit tag replaces class and number only (X.690 8.14.3).
    return static_cast<unsigned char>(member.taggedIdentifier |
                                      (member.type->identifier & tag::constructed));
}

/// Whether a CHOICE, an open type or a kept value can begin with this identifier octet.
bool untaggedFits(const Type& type, unsigned char found) noexcept;

/// Whether a value of the type can begin with this identifier octet. The constructed bit is not
/// looked at.
inline bool identifierFits(const Type& type, unsigned char found) noexcept {
    return type.identifier == tag::none ? untaggedFits(type, found)
                                        : tag::masked(type.identifier) == tag::masked(found);
}

/// The same for a member or an alternative, with the tag that it has there.
inline bool identifierFits(const Member& member, unsigned char found) noexcept {
    return member.tagging == Tagging::none
               ? identifierFits(*member.type, found)
               : tag::masked(member.taggedIdentifier) == tag::masked(found);
}

/// Whether the member, rather than one behind it, stands at `position`.
inline bool isPresent(const Member& member, const unsigned char* position,
                      const unsigned char* end) noexcept {
    return position != end && identifierFits(member, *position);
}

} // namespace asn1
