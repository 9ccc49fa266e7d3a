// Filling values from encodings that were checked before.
#include "valuereader.h"

#include "element.h"

namespace asn1 {

namespace {

using Range = BufferRange<unsigned char>;

/// The encoding of a member without the explicit tag around it.
Range withoutExplicitTag(const Member& member, const Element& element) noexcept {
    return member.tagging == Tagging::explicitTag ? element.contentsRange() : element.range();
}

void readMembers(const Octets& bytes, Range contents, std::span<const Member> members,
                 Asn1& value) {
    const unsigned char* position = contents.begin();
    for (const Member& member : members) {
        if (member.presence != Presence::mandatory &&
            !isPresent(member, position, contents.end())) {
            member.remove(value);
            continue;
        }
        const Element element = elementAt(position, contents.end());
        readValue(bytes, withoutExplicitTag(member, element), member.emplace(value));
        position = element.end;
    }
}

void readChoice(const Octets& bytes, Range encoding, Choice& value) {
    int index = 0;
    for (const Member& alternative : value.type().members) {
        if (isPresent(alternative, encoding.begin(), encoding.end())) {
            const Element element = elementAt(encoding.begin(), encoding.end());
            readValue(bytes, withoutExplicitTag(alternative, element), alternative.emplace(value));
            value.choose(index);
            return;
        }
        ++index;
    }
}

} // namespace

void readValue(const Octets& bytes, Range encoding, Asn1& value) {
    const Type& type = value.type();
    switch (type.typeClass) {
    case TypeClass::choice:
        readChoice(bytes, encoding, static_cast<Choice&>(value));
        break;
    case TypeClass::openType:
    case TypeClass::kept:
        static_cast<EncodedValue&>(value).assignEncoding(bytes.slice(encoding));
        break;
    case TypeClass::sequence:
        readMembers(bytes, elementAt(encoding.begin(), encoding.end()).contentsRange(),
                    type.members, value);
        break;
    default:
        static_cast<ContentsValue&>(value).assignContents(
            bytes.slice(elementAt(encoding.begin(), encoding.end()).contentsRange()));
    }
}

std::optional<Range> findMember(std::span<const Member> members, Range contents,
                                std::size_t index) noexcept {
    // A mandatory member is there: it need not be looked at, only passed.
    const auto stands = [end = contents.end()](const Member& member, const unsigned char* at) {
        return member.presence == Presence::mandatory || isPresent(member, at, end);
    };
    const unsigned char* position = contents.begin();
    for (const Member& earlier : members.first(index))
        if (stands(earlier, position))
            position = elementAt(position, contents.end()).end;
    if (!stands(members[index], position))
        return std::nullopt;
    return withoutExplicitTag(members[index], elementAt(position, contents.end()));
}

} // namespace asn1
