// SEQUENCE OF and SET OF.
#include "sequenceof.h"

#include "der.h"
#include "element.h"
#include "makeevent.h"
#include "valuereader.h"

namespace asn1 {

namespace {
constexpr wchar_t sourceFile[] = L"asn1\\src\\sequenceof.cpp";
}

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
    contents_.append(aux::encodeDer(item, false));
}

void List::makeEmpty() {
    contents_ = Octets(Buffer<unsigned char>(std::size_t{0}));
}

} // namespace asn1
