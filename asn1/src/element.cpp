// One element of an encoding: identifier, length, contents (X.690 8.1).
#include "element.h"

#include <algorithm>
#include <limits>

namespace asn1 {

namespace {

// Larger tag numbers than OpenSSL reads are of no use to anybody who asks Windows next.
constexpr std::size_t maxTagNumber = std::numeric_limits<std::int32_t>::max();

/// The position behind the identifier octets (X.690 8.1.2), or null.
const unsigned char* skipIdentifier(const unsigned char* position, const unsigned char* end) {
    const unsigned char first = *position++;
    if ((first & 0x1F) != 0x1F)
        return position;
    std::size_t number = 0;
    for (bool isFirst = true; position != end; isFirst = false) {
        const unsigned char octet = *position++;
        if (isFirst && octet == 0x80) // X.690 8.1.2.4.2 c)
            return nullptr;
        number = number << 7 | (octet & 0x7Fu);
        if (number > maxTagNumber)
            return nullptr;
        if ((octet & 0x80) == 0)
            return number >= 0x1F ? position : nullptr;
    }
    return nullptr;
}

struct Length {
    ElementFault fault;
    const unsigned char* contents;
    std::size_t value;
    bool shortestForm;
};

constexpr Length malformedLength{ElementFault::malformed, nullptr, 0, false};

/// A length of the long form (X.690 8.1.3.5) of which `count` octets follow.
Length readLongLength(const unsigned char* position, const unsigned char* end, std::size_t count,
                      Rules rules) {
    if (count == 0x7F || count > static_cast<std::size_t>(end - position))
        return malformedLength;
    const bool leadingZero = *position == 0;
    std::size_t value = 0;
    for (std::size_t i = 0; i != count; ++i) {
        if (value > std::numeric_limits<std::size_t>::max() >> 8)
            return malformedLength;
        value = value << 8 | *position++;
    }
    const bool shortest = !leadingZero && value >= 0x80;
    if (!shortest && rules == Rules::der)
        return malformedLength;
    return {ElementFault::none, position, value, shortest};
}

constexpr unsigned char indefiniteForm = 0x80;

bool isEndOfContents(const unsigned char* position, const unsigned char* end) {
    return end - position >= 2 && position[0] == 0 && position[1] == 0;
}

/// The position of the end-of-contents octets that end contents which begin at `position`, or
/// null. Works without recursion: nesting is as deep as the sender of the bytes likes.
const unsigned char* findEndOfContents(const unsigned char* position, const unsigned char* end) {
    std::size_t depth = 1;
    while (position != end) {
        if (isEndOfContents(position, end)) {
            if (--depth == 0)
                return position;
            position += 2;
            continue;
        }
        const unsigned char identifier = *position;
        const unsigned char* length = skipIdentifier(position, end);
        if (!length || length == end || tag::masked(identifier) == 0)
            return nullptr;
        if (*length == indefiniteForm) {
            if ((identifier & tag::constructed) == 0)
                return nullptr;
            ++depth;
            position = length + 1;
            continue;
        }
        Element element{};
        if (parseElement(position, end, Rules::ber, element) != ElementFault::none)
            return nullptr;
        position = element.end;
    }
    return nullptr;
}

} // namespace

bool untaggedFits(const Type& type, unsigned char found) noexcept {
    if (type.typeClass == TypeClass::kept)
        return identifierFits(*type.element, found);
    if (type.typeClass != TypeClass::choice)
        return type.typeClass == TypeClass::openType;
    return std::ranges::any_of(type.members, [found](const Member& alternative) {
        return identifierFits(alternative, found);
    });
}

ElementFault parseLongElement(const unsigned char* position, const unsigned char* end, Rules rules,
                              Element& element) noexcept {
    // Tag number 0 is kept for end-of-contents octets (X.690 8.1.5).
    if (position == end || tag::masked(*position) == 0)
        return ElementFault::malformed;
    const unsigned char* lengthPosition = skipIdentifier(position, end);
    if (!lengthPosition || lengthPosition == end)
        return ElementFault::malformed;
    const unsigned char first = *lengthPosition++;
    if (first == indefiniteForm) {
        if (rules == Rules::der)
            return ElementFault::indefinite;
        const unsigned char* contentsEnd =
            (*position & tag::constructed) != 0 ? findEndOfContents(lengthPosition, end) : nullptr;
        if (!contentsEnd)
            return ElementFault::malformed;
        element = {position, lengthPosition, contentsEnd, contentsEnd + 2, false};
        return ElementFault::none;
    }
    const Length length = first < indefiniteForm
                              ? Length{ElementFault::none, lengthPosition, first, true}
                              : readLongLength(lengthPosition, end, first & 0x7Fu, rules);
    if (length.fault != ElementFault::none ||
        length.value > static_cast<std::size_t>(end - length.contents))
        return ElementFault::malformed;
    const unsigned char* contentsEnd = length.contents + length.value;
    element = {position, length.contents, contentsEnd, contentsEnd, length.shortestForm};
    return ElementFault::none;
}

Element longElementAt(const unsigned char* position, const unsigned char* end) noexcept {
    Element element{position, end, end, end, true};
    parseLongElement(position, end, Rules::der, element);
    return element;
}

} // namespace asn1
