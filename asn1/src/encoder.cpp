// Encoding in two stages: the first computes the length of every constructed value, the second
// writes into a buffer of just the size that is needed.
#include "der.h"

#include "asn1type.h"
#include "element.h"
#include "form.h"
#include "length.h"
#include "unset.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\encoder.cpp";

using Range = BufferRange<unsigned char>;

/// The innermost member that keeps a value of `type` without anything set from being encoded.
const char* innermostMissing(const Type& type, const char* name) {
    if (type.typeClass == TypeClass::kept)
        return innermostMissing(*type.element, name);
    if (type.typeClass == TypeClass::sequence)
        for (const Member& member : type.members)
            if (member.presence == Presence::mandatory)
                return innermostMissing(*member.type, member.name);
    return name;
}

[[noreturn]] void throwMissing(const Type& type, const char* name, int line = __builtin_LINE()) {
    throw korv::makeEvent<QuorError_Asn1_Encode>(
        sourceFile, unsetValue(sourceFile, type, line),
        {{L"FIELD_NAME", wideText(innermostMissing(type, name))}}, line);
}

/// The lengths of constructed values, in the order in which the first stage meets them. A
/// certificate has about ten; memory is taken for many more only.
class Lengths {
public:
    std::size_t add() {
        if (count_ >= first_.size())
            more_.push_back(0);
        return count_++;
    }
    std::size_t& operator[](std::size_t index) noexcept {
        return index < first_.size() ? first_[index] : more_[index - first_.size()];
    }

private:
    std::array<std::size_t, 32> first_{};
    std::vector<std::size_t> more_;
    std::size_t count_ = 0;
};

class Encoder {
public:
    Buffer<unsigned char> encode(const Asn1& value) {
        Buffer<unsigned char> bytes(measure(value, value.type().name));
        out_ = bytes.data();
        write(value, value.type().identifier);
        return bytes;
    }

private:
    static constexpr std::size_t identifierOctets = 1;

    static std::size_t elementSize(std::size_t contents) noexcept {
        return identifierOctets + lengthOctets(contents) + contents;
    }

    /// The alternative that is chosen, or null.
    static const Member* chosenAlternative(const Choice& value) noexcept {
        const auto alternatives = value.type().members;
        const auto index = static_cast<std::size_t>(value.chosen()); // "nothing" is out of range
        return index < alternatives.size() ? &alternatives[index] : nullptr;
    }

    /// The member if it has to be written: not if it is absent or has its DEFAULT value.
    static const Asn1* memberToWrite(const Member& member, const Asn1& owner) {
        const Asn1* value = member.find(owner);
        if (value && member.presence == Presence::defaulted) {
            const auto& contents = static_cast<const ContentsValue&>(*value);
            if (contents.hasValue() &&
                std::ranges::equal(contents.contents(), member.defaultContents))
                return nullptr;
        }
        return value;
    }

    /// First stage: the size of a value with its tag. `name` is that of the member.
    std::size_t measure(const Asn1& value, const char* name) {
        const Type& type = value.type();
        switch (formOf(type, sourceFile)) {
        case Form::alternatives: {
            const Member* alternative = chosenAlternative(static_cast<const Choice&>(value));
            if (!alternative)
                throwMissing(type, name);
            return measureMember(*alternative, *alternative->find(value));
        }
        case Form::encoding: {
            const auto& encoded = static_cast<const EncodedValue&>(value);
            if (!encoded.hasValue())
                throwMissing(type, name);
            return encoded.encoding().size();
        }
        case Form::members:
            return measureMembers(value, type.members);
        case Form::contents:
            break;
        }
        const auto& contents = static_cast<const ContentsValue&>(value);
        if (!contents.hasValue())
            throwMissing(type, name);
        return elementSize(contents.contents().size());
    }

    std::size_t measureMembers(const Asn1& owner, std::span<const Member> members) {
        const std::size_t slot = lengths_.add();
        std::size_t size = 0;
        for (const Member& member : members)
            if (const Asn1* value = memberToWrite(member, owner))
                size += measureMember(member, *value);
        lengths_[slot] = size;
        return elementSize(size);
    }

    std::size_t measureMember(const Member& member, const Asn1& value) {
        if (member.tagging != Tagging::explicitTag)
            return measure(value, member.name);
        const std::size_t slot = lengths_.add();
        lengths_[slot] = measure(value, member.name);
        return elementSize(lengths_[slot]);
    }

    /// Second stage: meets the constructed values in the order of the first one.
    void write(const Asn1& value, unsigned char identifier) {
        const Type& type = value.type();
        switch (formOf(type, sourceFile)) {
        case Form::alternatives: {
            const Member* alternative = chosenAlternative(static_cast<const Choice&>(value));
            writeMember(*alternative, *alternative->find(value));
            break;
        }
        case Form::encoding:
            writeBytes(static_cast<const EncodedValue&>(value).encoding());
            break;
        case Form::members:
            writeHeader(identifier, nextLength());
            for (const Member& member : type.members)
                if (const Asn1* memberValue = memberToWrite(member, value))
                    writeMember(member, *memberValue);
            break;
        case Form::contents: {
            const Range contents = static_cast<const ContentsValue&>(value).contents();
            writeHeader(identifier, contents.size());
            writeBytes(contents);
        }
        }
    }

    void writeMember(const Member& member, const Asn1& value) {
        if (member.tagging == Tagging::explicitTag) {
            writeHeader(member.taggedIdentifier, nextLength());
            write(value, member.type->identifier);
        } else
            write(value, identifierOf(member));
    }

    std::size_t nextLength() noexcept { return lengths_[nextLength_++]; }

    void writeHeader(unsigned char identifier, std::size_t length) noexcept {
        *out_++ = identifier;
        out_ = writeLength(length, out_);
    }

    void writeBytes(Range bytes) noexcept {
        std::memcpy(out_, bytes.begin(), bytes.size());
        out_ += bytes.size();
    }

    Lengths lengths_;
    std::size_t nextLength_ = 0;
    unsigned char* out_ = nullptr;
};

Octets wholeEncoding(const Asn1& value) {
    if (formOf(value.type(), sourceFile) == Form::encoding)
        if (const auto& encoded = static_cast<const EncodedValue&>(value); encoded.hasValue())
            return encoded.encodingOctets();
    return Octets(Encoder().encode(value));
}

Octets encodingOf(const Asn1& value, bool contentsOnly) {
    const Octets whole = wholeEncoding(value);
    const Range range = whole.range();
    return contentsOnly ? whole.slice(elementAt(range.begin(), range.end()).contentsRange())
                        : whole;
}

} // namespace

Buffer<unsigned char> aux::encodeDer(const Asn1& value, bool contentsOnly) {
    return encodingOf(value, contentsOnly).toBuffer();
}

std::int16_t der::cmp(const Asn1& a, const Asn1& b, bool contentsOnly) {
    const Octets encodingA = encodingOf(a, contentsOnly);
    const Octets encodingB = encodingOf(b, contentsOnly);
    const Range left = encodingA.range();
    const Range right = encodingB.range();
    const auto order = std::lexicographical_compare_three_way(left.begin(), left.end(),
                                                              right.begin(), right.end());
    return static_cast<std::int16_t>(order < 0 ? -1 : order > 0);
}

} // namespace asn1
