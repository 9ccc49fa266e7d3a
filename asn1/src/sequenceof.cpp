// SEQUENCE OF and SET OF.
#include "sequenceof.h"

#include "der.h"
#include "element.h"
#include "makeevent.h"
#include "valuereader.h"

#include <algorithm>

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\sequenceof.cpp";

using Range = BufferRange<unsigned char>;

/// Where an item belongs in a SET OF (X.690 11.6): before the first one that has to follow it. The
/// standard pads the shorter of two encodings with zeros, but none is the beginning of another.
const unsigned char* placeInSet(Range items, Range item) noexcept {
    const unsigned char* position = items.begin();
    while (position != items.end()) {
        const Element element = elementAt(position, items.end());
        if (std::ranges::lexicographical_compare(item, element.range()))
            break;
        position = element.end;
    }
    return position;
}

} // namespace

std::size_t List::size() const noexcept {
    std::size_t items = 0;
    const BufferRange<unsigned char> all = contents();
    for (const unsigned char* p = all.begin(); p != all.end(); p = elementAt(p, all.end()).end)
        ++items;
    return items;
}

BufferRange<unsigned char> List::encodingAt(const unsigned char* position) const noexcept {
    return elementAt(position, contents().end()).range();
}

BufferRange<unsigned char> List::encodingOf(std::size_t index) const {
    const BufferRange<unsigned char> all = contents();
    const unsigned char* position = all.begin();
    for (std::size_t i = 0; i != index && position != all.end(); ++i)
        position = elementAt(position, all.end()).end;
    if (position == all.end())
        throw korv::makeEvent<QuorError_Asn1_InvalidItemIndex>(
            sourceFile, {{L"INDEX", index}, {L"SIZE", size()}});
    return encodingAt(position);
}

void List::readItem(BufferRange<unsigned char> encoding, Asn1& item) const {
    readValue(contents_, encoding, item);
}

void List::appendItem(const Asn1& item) {
    const Buffer<unsigned char> encoding = aux::encodeDer(item, false);
    const Range items = contents();
    const unsigned char* place =
        type().typeClass == TypeClass::setOf ? placeInSet(items, encoding) : items.end();
    if (place == items.end()) {
        contents_.append(encoding);
        return;
    }
    Buffer<unsigned char> all(items.begin(), static_cast<std::size_t>(place - items.begin()));
    all.append(encoding);
    all.append(place, static_cast<std::size_t>(items.end() - place));
    contents_ = Octets(std::move(all));
}

void List::makeEmpty() {
    contents_ = Octets(Buffer<unsigned char>(std::size_t{0}));
}

} // namespace asn1
