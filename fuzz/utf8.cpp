// UTF-8 in both directions, against a plain reading of the rules.
#include "bufcodecs.h"
#include "fuzztarget.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace fuzz {

namespace {

using buffer::BufferError_InvalidEncodingUnit;

struct Lead {
    unsigned char first, last;
    std::size_t continuations;
    unsigned char bits;
};

constexpr Lead leads[] = {
    {0x00, 0x7F, 0, 0x7F}, {0x80, 0xDF, 1, 0x1F}, {0xE0, 0xEF, 2, 0x0F},
    {0xF0, 0xF7, 3, 0x07}, {0xF8, 0xFB, 4, 0x03}, {0xFC, 0xFD, 5, 0x01},
};

const Lead* leadOf(unsigned char byte) {
    for (const Lead& lead : leads)
        if (byte >= lead.first && byte <= lead.last)
            return &lead;
    return nullptr;
}

enum class End { all, badByte, noLead };

struct Decoded {
    std::wstring text;
    std::size_t consumed = 0;
    End end = End::all;
};

Decoded plainlyDecoded(Input input) {
    Decoded result;
    while (result.consumed != input.size()) {
        const std::size_t begin = result.consumed;
        const Lead* lead = leadOf(input[begin]);
        if (!lead) {
            result.end = End::noLead;
            return result;
        }
        result.end = End::badByte;
        if (lead->continuations >= input.size() - begin)
            return result;
        std::uint16_t value = input[begin] & lead->bits;
        for (std::size_t i = 1; i <= lead->continuations; ++i) {
            const unsigned char byte = input[begin + i];
            if (byte < 0x80 || byte > 0xBF) {
                result.consumed = begin + i;
                return result;
            }
            value = static_cast<std::uint16_t>(value * 64 + (byte - 0x80));
        }
        result.text += static_cast<wchar_t>(value);
        result.consumed = begin + 1 + lead->continuations;
        result.end = End::all;
    }
    return result;
}

void checkDecoding(Input input) {
    const Decoded expected = plainlyDecoded(input);
    Input rest = input;
    buffer::Buffer<wchar_t> text = L"before";
    End end = End::all;
    try {
        buffer::Utf8Decoder::decode(rest, text);
    } catch (const BufferError_InvalidEncodingUnit& error) {
        end = error.params().empty() ? End::noLead : End::badByte;
        if (end == End::badByte) {
            require(error.params().size() == 2, "there are other parameters");
            require(error.params()[0] == korv::GenericEvent::Param{L"CODEC", L"Utf8Decoder"} &&
                        error.params()[1] ==
                            korv::GenericEvent::Param{L"CAUSE", L"BadUft8Encoding"},
                    "a parameter says something else");
        }
    }
    require(end == expected.end, "it ends otherwise");
    require(std::wstring(text.begin(), text.end()) == L"before" + expected.text,
            "it is decoded to another text");
    require(static_cast<std::size_t>(rest.begin() - input.begin()) == expected.consumed &&
                rest.end() == input.end(),
            "another part of the input is consumed");
    require(*text.end() == L'\0', "there is no terminator");
}

/// Any units come back from their encoding.
void checkEncoding(Input input) {
    const std::wstring units = unitsOf(input);
    buffer::Buffer<unsigned char> bytes(input.data(), input.size());
    buffer::Utf8Encoder::encode({units.data(), units.size()}, bytes);
    require(*bytes.end() == 0, "there is no terminator");
    Input encoding(bytes);
    require(encoding.size() >= input.size() &&
                std::equal(input.begin(), input.end(), encoding.begin()),
            "what was there before has changed");
    encoding.advance(input.size());

    buffer::Buffer<wchar_t> text = L"";
    buffer::Utf8Decoder::decode(encoding, text);
    require(encoding.empty(), "something is left of an encoding");
    require(std::wstring(text.begin(), text.end()) == units, "other units come back");
}

} // namespace

void utf8(Input input) {
    checkDecoding(input);
    checkEncoding(input);
}

} // namespace fuzz
