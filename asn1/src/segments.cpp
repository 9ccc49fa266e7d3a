// Strings in segments, which BER allows (X.690 8.6.4, 8.7.3, 8.23).
#include "segments.h"

#include "bufcodecs.h"
#include "contents.h"
#include "makeevent.h"

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\segments.cpp";

using Range = BufferRange<unsigned char>;

// Nobody nests segments. The bound keeps the stack small, as that of the decoder does.
constexpr std::size_t maxDepth = 32;

class Joiner {
public:
    Joiner(TypeClass typeClass, unsigned char ownIdentifier, const unsigned char* input,
           TmpBuffer<unsigned char>& contents)
        : isBitString_(typeClass == TypeClass::bitString), ownIdentifier_(ownIdentifier),
          input_(input), contents_(contents) {
        contents_.resize(0);
        if (isBitString_)
            contents_.append(0); // how many bits are unused: none as long as there are none
    }

    void join(const Element& string, std::size_t depth) {
        if (depth > maxDepth)
            throwMismatch(string.begin);
        for (const unsigned char* position = string.contents; position != string.contentsEnd;) {
            const Element segment = segmentAt(position, string.contentsEnd);
            if ((segment.identifier() & tag::constructed) != 0)
                join(segment, depth + 1);
            else if (isBitString_)
                appendBits(segment);
            else
                append(segment.contentsRange());
            position = segment.end;
        }
    }

private:
    Element segmentAt(const unsigned char* position, const unsigned char* end) const {
        const unsigned char found = tag::masked(*position);
        if (found != segmentIdentifier() && found != tag::masked(ownIdentifier_))
            throwWrongTag(position);
        Element segment;
        if (parseElement(position, end, Rules::ber, segment) != ElementFault::none)
            throwMismatch(position);
        return segment;
    }

    /// The first octet says how many bits are unused, which only the last segment may have.
    void appendBits(const Element& segment) {
        Range bits = segment.contentsRange();
        if (contents_[0] != 0 || !contentsFit(TypeClass::bitString, bits, Rules::ber))
            throwMismatch(segment.begin);
        contents_.data()[0] = bits[0];
        bits.advance(1);
        append(bits);
    }

    void append(Range octets) { contents_.append(octets.begin(), octets.size()); }

    unsigned char segmentIdentifier() const noexcept {
        return tag::universal(isBitString_ ? 3 : 4);
    }

    korv::EventParam positionParam(const unsigned char* position) const {
        return {L"POSITION", static_cast<std::size_t>(position - input_)};
    }

    [[noreturn]] void throwMismatch(const unsigned char* position,
                                    int line = __builtin_LINE()) const {
        throw korv::makeEvent<QuorError_Asn1_Decode>(
            sourceFile, {{L"CAUSE", L"ValueDoesNotMatch"}, positionParam(position)}, line);
    }

    [[noreturn]] void throwWrongTag(const unsigned char* position,
                                    int line = __builtin_LINE()) const {
        const unsigned char identifier = segmentIdentifier();
        Buffer<wchar_t> expected = buffer::hexEncode({&identifier, 1});
        if (ownIdentifier_ != identifier) {
            expected.append(L' ');
            expected.append(buffer::hexEncode({&ownIdentifier_, 1}));
        }
        const auto wrongTag = korv::makeEvent<QuorError_Asn1_InvalidTag>(
            sourceFile,
            {{L"EXPECTED_TAG", expected}, {L"FOUND_TAG", buffer::hexEncode({position, 1})}}, line);
        throw korv::makeEvent<QuorError_Asn1_Decode>(
            sourceFile, wrongTag, {{L"CAUSE", L"ValueDoesNotMatch"}, positionParam(position)},
            line);
    }

    bool isBitString_;
    unsigned char ownIdentifier_;
    const unsigned char* input_;
    TmpBuffer<unsigned char>& contents_;
};

} // namespace

bool mayBeSegmented(TypeClass typeClass) noexcept {
    switch (typeClass) {
    case TypeClass::bitString:
    case TypeClass::octetString:
    case TypeClass::characterString:
    case TypeClass::twoByteString:
    case TypeClass::fourByteString:
    case TypeClass::utcTime:
    case TypeClass::generalizedTime:
        return true;
    default:
        return false;
    }
}

void joinSegments(TypeClass typeClass, unsigned char ownIdentifier, const Element& string,
                  const unsigned char* input, TmpBuffer<unsigned char>& contents) {
    Joiner(typeClass, ownIdentifier, input, contents).join(string, 1);
}

} // namespace asn1
