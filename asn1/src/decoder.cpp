// Decoding: checks an input against a type in one pass, then keeps one copy of its bytes.
#include "der.h"

#include "bufcodecs.h"
#include "contents.h"
#include "element.h"
#include "length.h"
#include "makeevent.h"
#include "segments.h"
#include "unknownclass.h"
#include "valuereader.h"

#include <array>
#include <atomic>
#include <cstring>

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\decoder.cpp";

using Range = BufferRange<unsigned char>;

std::atomic<bool> acceptsEncodedDefaults{false};

// How deep SEQUENCEs, lists and explicit tags may nest. Those of a certificate lie at most five
// deep; only the input bounds the depth of a type that contains itself.
constexpr std::size_t maxDepth = 32;

/// Drops what is read: most inputs are DER already, and then their bytes are kept.
struct NoOutput {
    using Mark = std::nullptr_t;
    Mark mark() const noexcept { return nullptr; }
    void rollBack(Mark) const noexcept {}
    void begin(unsigned char) const noexcept {}
    void end() const noexcept {}
    void primitive(unsigned char, TypeClass, Range) const noexcept {}
    void openElement(const Element&) const noexcept {}
};

/// Writes what is read as DER. Only the rare input that is not DER itself gets here, so contents
/// may be moved to make room for their length.
class DerOutput {
public:
    using Mark = std::size_t;
    Mark mark() const noexcept { return bytes_.size(); }
    void rollBack(Mark mark) { bytes_.resize(mark); }

    void begin(unsigned char identifier) {
        bytes_.append(identifier);
        contentsStarts_[depth_++] = bytes_.size();
    }
    void end() { insertLength(contentsStarts_[--depth_]); }

    void primitive(unsigned char identifier, TypeClass typeClass, Range contents) {
        begin(identifier);
        bytes_.append(contents.begin(), contents.size());
        if (!contents.empty())
            bytes_.data()[bytes_.size() - 1] = normalLastOctet(typeClass, contents);
        end();
    }

    /// The contents of an open type stay as they came: their type is not known.
    void openElement(const Element& element) {
        const unsigned char* identifierEnd = element.begin + 1;
        if ((element.identifier() & 0x1F) == 0x1F)
            while ((*identifierEnd++ & 0x80) != 0) {
            }
        bytes_.append(element.begin, static_cast<std::size_t>(identifierEnd - element.begin));
        contentsStarts_[depth_++] = bytes_.size();
        bytes_.append(element.contents, element.contentsRange().size());
        end();
    }

    Octets octets() && { return Octets(Buffer<unsigned char>(std::move(bytes_))); }

private:
    void insertLength(std::size_t contentsStart) {
        const std::size_t length = bytes_.size() - contentsStart;
        const std::size_t octets = lengthOctets(length);
        bytes_.resize(bytes_.size() + octets);
        unsigned char* contents = bytes_.data() + contentsStart;
        std::memmove(contents + octets, contents, length);
        writeLength(length, contents);
    }

    TmpBuffer<unsigned char> bytes_{0};
    std::array<std::size_t, maxDepth + 1> contentsStarts_{}; // one more for what has no members
    std::size_t depth_ = 0;
};

Buffer<wchar_t> identifierText(unsigned char identifier) {
    return buffer::hexEncode({&identifier, std::size_t{1}});
}

void appendExpectedIdentifiers(const Type& type, unsigned char expected, Buffer<wchar_t>& text) {
    if (expected != tag::none) {
        if (!text.isNull())
            text.append(L' ');
        text.append(identifierText(expected));
        return;
    }
    for (const Member& alternative : type.members)
        appendExpectedIdentifiers(*alternative.type, identifierOf(alternative), text);
}

/// Whether values of the type begin with a tag of its own.
constexpr bool hasTag(const Type& type) noexcept {
    return type.form == Form::primitive || type.form == Form::list || type.form == Form::members;
}

// A certificate has some sixty elements, and each comes through `decodeValue`: that is where the
// time goes. So there the usual element is parsed in place, the rules are a constant, and what is
// rare is left to functions of its own.
template <Rules rules, class Output>
class Decoder {
public:
    Decoder(Range input, Output& output) : input_(input), output_(output) {}

    /// Reads the value at the beginning of the input; returns how many bytes it takes.
    std::size_t decode(const Type& type) {
        const unsigned char* end = decodeValue(type, type.identifier, input_.begin(), input_.end());
        return static_cast<std::size_t>(end - input_.begin());
    }

    /// Whether the bytes that were read are the DER encoding of what they mean.
    bool isDer() const noexcept { return isDer_; }

private:
    using Position = const unsigned char*;

    /// Reads a value whose tag is `identifier`, if it has one; returns the position behind it.
    Position decodeValue(const Type& type, unsigned char identifier, Position position,
                         Position end) {
        if (!hasTag(type))
            return decodeUntagged(type, position, end);
        checkTag(type, identifier, position, end);
        Element element;
        return parseShortLength(position, end, element)
                   ? decodeTagged(type, identifier, element)
                   : decodeTagged(type, identifier, parse(position, end));
    }

    Position decodeTagged(const Type& type, unsigned char identifier, const Element& element) {
        noteForm(element, identifier);
        if (type.form == Form::members)
            decodeMembers(type, identifier, element);
        else if (type.form == Form::list)
            decodeItems(*type.element, identifier, element);
        else
            checkContents(type, identifier, element);
        return element.end;
    }

    Position decodeUntagged(const Type& type, Position position, Position end) {
        switch (type.form) {
        case Form::alternatives:
            return decodeChoice(type, position, end);
        case Form::openElement: {
            const Element element = parse(position, end);
            noteForm(element, element.identifier());
            output_.openElement(element);
            return element.end;
        }
        case Form::kept:
            return decodeValue(*type.element, type.element->identifier, position, end);
        default:
            throw unknownClass(sourceFile, type);
        }
    }

    Position decodeChoice(const Type& type, Position position, Position end) {
        if (position == end)
            throwMismatch(position);
        for (const Member& alternative : type.members)
            if (isPresent(alternative, position, end))
                return decodeMember(alternative, position, end);
        throwWrongTag(type, tag::none, position);
    }

    void decodeMembers(const Type& type, unsigned char identifier, const Element& element) {
        enter(identifier, element.begin);
        Position inner = element.contents;
        for (const Member& member : type.members)
            inner = decodeMember(member, inner, element.contentsEnd);
        if (inner != element.contentsEnd)
            throwMismatch(inner);
        leave();
    }

    Position decodeMember(const Member& member, Position position, Position end) {
        if (member.presence == Presence::mandatory)
            return decodePresent(member, position, end);
        return isPresent(member, position, end) ? decodeOptional(member, position, end) : position;
    }

    Position decodePresent(const Member& member, Position position, Position end) {
        return member.tagging == Tagging::explicitTag
                   ? decodeExplicit(member, position, end)
                   : decodeValue(*member.type, identifierOf(member), position, end);
    }

    Position decodeOptional(const Member& member, Position position, Position end) {
        const auto mark = output_.mark();
        const Position next = decodePresent(member, position, end);
        if (member.presence == Presence::defaulted && lastIsDefaultOf(member)) {
            if (rules == Rules::der && !encodedDefaultsAccepted())
                throw decodeError(L"DefaultValuePresentInDEREncoding", position);
            isDer_ = false;
            output_.rollBack(mark);
        }
        return next;
    }

    Position decodeExplicit(const Member& member, Position position, Position end) {
        checkTag(*member.type, member.taggedIdentifier, position, end);
        const Element element = parse(position, end);
        noteForm(element, member.taggedIdentifier);
        if ((element.identifier() & tag::constructed) == 0)
            throw decodeError(L"ExplicitTagWithoutConstructorBit", position);
        enter(member.taggedIdentifier, position);
        const Position inner = decodeValue(*member.type, member.type->identifier, element.contents,
                                           element.contentsEnd);
        if (inner != element.contentsEnd)
            throwMismatch(inner);
        leave();
        return element.end;
    }

    void decodeItems(const Type& item, unsigned char identifier, const Element& element) {
        enter(identifier, element.begin);
        for (Position inner = element.contents; inner != element.contentsEnd;)
            inner = decodeValue(item, item.identifier, inner, element.contentsEnd);
        leave();
    }

    void checkContents(const Type& type, unsigned char identifier, const Element& element) {
        const Range contents = contentsOf(type, element);
        if (!contentsFit(type.typeClass, contents, rules))
            throwMismatch(element.begin);
        if (rules == Rules::ber)
            isDer_ = isDer_ && contentsAreNormal(type.typeClass, contents);
        output_.primitive(identifier, type.typeClass, contents);
        lastContents_ = contents;
    }

    /// The contents octets of a value without elements in it.
    Range contentsOf(const Type& type, const Element& element) {
        if constexpr (rules == Rules::ber)
            if ((element.identifier() & tag::constructed) != 0) {
                if (mayBeSegmented(type.typeClass)) {
                    joinSegments(type.typeClass, type.identifier, element, input_.begin(), joined_);
                    return joined_;
                }
                if (element.contentsEnd != element.end) // an indefinite length
                    throwMismatch(element.begin);
            }
        return element.contentsRange();
    }

    /// Begins the contents of the constructed element at `position`.
    void enter(unsigned char identifier, Position position) {
        if (++depth_ > maxDepth)
            throwMismatch(position);
        output_.begin(identifier);
    }
    void leave() {
        --depth_;
        output_.end();
    }

    /// The tag comes first: of an element that is another one the length is of no interest.
    void checkTag(const Type& type, unsigned char identifier, Position position,
                  Position end) const {
        if (position == end)
            throwMismatch(position);
        if (tag::masked(*position) != tag::masked(identifier))
            throwWrongTag(type, identifier, position);
    }

    void noteForm(const Element& element, unsigned char identifier) noexcept {
        isDer_ &= element.identifier() == identifier && element.shortestForm;
    }

    /// An element of any form.
    Element parse(Position position, Position end) const {
        Element element;
        const ElementFault fault = parseElement(position, end, rules, element);
        if (fault == ElementFault::indefinite)
            throw decodeError(L"UndefinedLengthPresentInDerEncoding", position);
        if (fault != ElementFault::none)
            throwMismatch(position);
        return element;
    }

    /// Whether the value that was read last, once it is DER, is the DEFAULT of the member. Only
    /// values that are contents octets have one.
    bool lastIsDefaultOf(const Member& member) const noexcept {
        const Range expected = member.defaultContents;
        if (lastContents_.size() != expected.size())
            return false;
        if (expected.empty())
            return true;
        const std::size_t last = expected.size() - 1;
        return std::memcmp(lastContents_.begin(), expected.begin(), last) == 0 &&
               normalLastOctet(member.type->typeClass, lastContents_) == expected[last];
    }

    korv::EventParam positionParam(Position position) const {
        return {L"POSITION", static_cast<std::size_t>(position - input_.begin())};
    }

    QuorError_Asn1_Decode decodeError(const wchar_t* cause, Position position,
                                      int line = __builtin_LINE()) const {
        return korv::makeEvent<QuorError_Asn1_Decode>(
            sourceFile, {{L"CAUSE", cause}, positionParam(position)}, line);
    }

    [[noreturn]] void throwMismatch(Position position, int line = __builtin_LINE()) const {
        throw decodeError(L"ValueDoesNotMatch", position, line);
    }

    [[noreturn]] void throwWrongTag(const Type& type, unsigned char identifier, Position position,
                                    int line = __builtin_LINE()) const {
        Buffer<wchar_t> expected;
        appendExpectedIdentifiers(type, identifier, expected);
        const auto wrongTag = korv::makeEvent<QuorError_Asn1_InvalidTag>(
            sourceFile, {{L"EXPECTED_TAG", expected}, {L"FOUND_TAG", identifierText(*position)}},
            line);
        throw korv::makeEvent<QuorError_Asn1_Decode>(
            sourceFile, wrongTag, {{L"CAUSE", L"ValueDoesNotMatch"}, positionParam(position)},
            line);
    }

    Range input_;
    Output& output_;
    Range lastContents_;
    TmpBuffer<unsigned char> joined_; ///< what `lastContents_` are of a string in segments
    std::size_t depth_ = 0;
    bool isDer_ = true;
};

struct CheckedValue {
    Octets der;
    std::size_t consumed; ///< of the input
};

/// The DER encoding of the value of `type` at the beginning of `input`.
/// \param wholeInput whether the value must be all of the input
template <Rules rules>
CheckedValue checked(const Type& type, Range input, bool wholeInput) {
    NoOutput noOutput;
    Decoder<rules, NoOutput> checker(input, noOutput);
    const std::size_t consumed = checker.decode(type);
    if (wholeInput && consumed != input.size())
        throw korv::makeEvent<QuorError_Asn1_Decode>(sourceFile,
                                                     {{L"CAUSE", L"NotAllBufferConsumed"},
                                                      {L"CONSUMED_BYTES", consumed},
                                                      {L"BUFFER_SIZE", input.size()}});
    if (checker.isDer())
        return {Octets(Buffer<unsigned char>(input.begin(), consumed)), consumed};
    DerOutput output;
    Decoder<rules, DerOutput>(input, output).decode(type);
    return {std::move(output).octets(), consumed};
}

/// \returns how much of the input the value takes
template <Rules rules>
std::size_t decodeInto(Asn1& value, Range input, bool wholeInput) {
    const Type& type = value.type();
    CheckedValue encoding = checked<rules>(type, input, wholeInput);
    if (type.typeClass == TypeClass::kept)
        static_cast<EncodedValue&>(value).assignEncoding(std::move(encoding.der));
    else
        readValue(encoding.der, encoding.der.range(), value);
    return encoding.consumed;
}

} // namespace

bool encodedDefaultsAccepted() noexcept {
    return acceptsEncodedDefaults.load(std::memory_order_relaxed);
}

void acceptEncodedDefaults(bool accept) noexcept {
    acceptsEncodedDefaults.store(accept, std::memory_order_relaxed);
}

void der::decode(Range input, Asn1& value) {
    decodeInto<Rules::der>(value, input, true);
}

void aux::decodeBer(Range& input, Asn1& value, bool wholeInput) {
    input.advance(decodeInto<Rules::ber>(value, input, wholeInput));
}

} // namespace asn1
