// Encoding in two stages: the first walks over the values, computes the length of every constructed
// one and notes what there is to write; the second writes it into a buffer of just that size.
#include "der.h"

#include "asn1type.h"
#include "element.h"
#include "length.h"
#include "unknownclass.h"
#include "unset.h"

#include <algorithm>
#include <array>
#include <cstddef>
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

/// A piece of an encoding, as the first stage finds it and the second writes it.
struct Piece {
    const unsigned char* contents; ///< null if they are the pieces that follow
    std::size_t size;              ///< of the contents, in bytes
    unsigned char identifier;      ///< `tag::none` if `contents` begin with it themselves
};

/// What is to be written, in order. A certificate has some 25 pieces; memory is taken for many
/// more only.
class Pieces {
public:
    /// A new piece at the end, to be filled; valid until the next one is added.
    Piece& add() {
        const std::size_t index = count_++;
        return index < first_.size() ? first_[index] : more_.emplace_back();
    }
    std::size_t count() const noexcept { return count_; }
    Piece& operator[](std::size_t index) noexcept {
        return index < first_.size() ? first_[index] : more_[index - first_.size()];
    }

    void write(unsigned char* out) const noexcept {
        for (std::size_t i = 0; i != std::min(count_, first_.size()); ++i)
            out = write(first_[i], out);
        for (const Piece& piece : more_)
            out = write(piece, out);
    }

private:
    static unsigned char* write(const Piece& piece, unsigned char* out) noexcept {
        if (piece.identifier != tag::none) {
            *out++ = piece.identifier;
            out = writeLength(piece.size, out);
        }
        if (!piece.contents)
            return out;
        std::memcpy(out, piece.contents, piece.size);
        return out + piece.size;
    }

    std::array<Piece, 32> first_; // uninitialised: most of it is not used
    std::vector<Piece> more_;
    std::size_t count_ = 0;
};

class Encoder {
public:
    Buffer<unsigned char> encode(const Asn1& value) {
        const Type& type = value.type();
        add(value, type, type.identifier, type.name);
        Buffer<unsigned char> bytes(size_);
        pieces_.write(bytes.data());
        return bytes;
    }

private:
    // The first stage meets every value once, in order.

    /// \param name of the member that the value is
    void add(const Asn1& value, const Type& type, unsigned char identifier, const char* name) {
        switch (type.form) {
        case Form::primitive:
        case Form::list: {
            const auto& held = static_cast<const ContentsValue&>(value);
            if (!held.hasValue())
                throwMissing(type, name);
            addPiece(identifier, held.contents());
            addHeaderSize(held.contents().size());
            break;
        }
        case Form::openElement:
        case Form::kept: {
            const auto& held = static_cast<const EncodedValue&>(value);
            if (!held.hasValue())
                throwMissing(type, name);
            addPiece(tag::none, held.encoding());
            break;
        }
        case Form::alternatives:
            addAlternative(static_cast<const Choice&>(value), type, name);
            break;
        case Form::members:
            addConstructed(identifier, [&] { addMembers(value, type.members); });
            break;
        default:
            throw unknownClass(sourceFile, type);
        }
    }

    void addAlternative(const Choice& value, const Type& type, const char* name) {
        const auto index = static_cast<std::size_t>(value.chosen()); // "nothing" is out of range
        if (index >= type.members.size())
            throwMissing(type, name);
        const Member& alternative = type.members[index];
        addMember(alternative, *alternative.find(value));
    }

    void addMembers(const Asn1& owner, std::span<const Member> members) {
        for (const Member& member : members)
            if (const Asn1* value = member.find(owner); value && !isDefault(member, *value))
                addMember(member, *value);
    }

    void addMember(const Member& member, const Asn1& value) {
        if (member.tagging == Tagging::explicitTag)
            addConstructed(member.taggedIdentifier,
                           [&] { add(value, *member.type, member.type->identifier, member.name); });
        else
            add(value, *member.type, identifierOf(member), member.name);
    }

    static bool isDefault(const Member& member, const Asn1& value) noexcept {
        if (member.presence != Presence::defaulted)
            return false;
        const auto& held = static_cast<const ContentsValue&>(value);
        return held.hasValue() && std::ranges::equal(held.contents(), member.defaultContents);
    }

    template <class AddContents>
    void addConstructed(unsigned char identifier, AddContents addContents) {
        const std::size_t index = pieces_.count();
        const std::size_t sizeBefore = size_;
        addPiece(identifier, {});
        addContents();
        const std::size_t contents = size_ - sizeBefore;
        pieces_[index].size = contents;
        addHeaderSize(contents);
    }

    // Filled field by field: a copy would read what was not written in one piece, and wait.
    void addPiece(unsigned char identifier, Range contents) {
        Piece& piece = pieces_.add();
        piece.contents = contents.begin();
        piece.size = contents.size();
        piece.identifier = identifier;
        size_ += contents.size();
    }

    void addHeaderSize(std::size_t contents) noexcept {
        constexpr std::size_t identifierOctets = 1;
        size_ += identifierOctets + lengthOctets(contents);
    }

    Pieces pieces_;
    std::size_t size_ = 0; ///< of all pieces together
};

Buffer<unsigned char> encode(const Asn1& value) {
    Encoder encoder; // `Encoder()` would fill the pieces with zeros first
    return encoder.encode(value);
}

/// The encoding that a value keeps, or null.
const Octets* keptEncoding(const Asn1& value) {
    const Form form = value.type().form;
    if (form != Form::openElement && form != Form::kept)
        return nullptr;
    const auto& encoded = static_cast<const EncodedValue&>(value);
    return encoded.hasValue() ? &encoded.encodingOctets() : nullptr;
}

Octets wholeEncoding(const Asn1& value) {
    if (const Octets* kept = keptEncoding(value))
        return *kept;
    return Octets(encode(value));
}

Octets encodingOf(const Asn1& value, bool contentsOnly) {
    const Octets whole = wholeEncoding(value);
    const Range range = whole.range();
    return contentsOnly ? whole.slice(elementAt(range.begin(), range.end()).contentsRange())
                        : whole;
}

} // namespace

Buffer<unsigned char> aux::encodeDer(const Asn1& value, bool contentsOnly) {
    if (contentsOnly)
        return encodingOf(value, true).toBuffer();
    if (const Octets* kept = keptEncoding(value))
        return kept->toBuffer();
    return encode(value);
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
