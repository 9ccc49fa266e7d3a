// Text codecs: hexadecimal, UTF-8 in both directions, lower-casing.
#pragma once

#include "buffer.h"
#include "buffererror.h"
#include "makeevent.h"

#include <cstdint>

namespace buffer {

/// Upper-case hexadecimal text, two digits a byte, high nibble first, nothing between them.
/// Nothing gives empty, not null, text.
/// \throws std::bad_alloc
inline TmpBuffer<wchar_t> hexEncode(BufferRange<unsigned char> bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    TmpBuffer<wchar_t> text(bytes.size() * 2);
    wchar_t* out = text.data();
    for (const unsigned char octet : bytes) {
        *out++ = static_cast<wchar_t>(digits[octet >> 4]);
        *out++ = static_cast<wchar_t>(digits[octet & 0x0F]);
    }
    return text;
}

/// Decodes UTF-8 into UTF-16 units, one for each sequence.
///
/// The decoder is lenient on purpose, so that text written by any version of the system reads
/// back: 80 to BF begin a sequence of two bytes where a sequence may begin; sequences of up to
/// six bytes, overlong forms and surrogates are taken as they come; a value keeps its low 16
/// bits only.
class Utf8Decoder {
public:
    /// Consumes `bytes` from the front and appends what they mean to `text`.
    /// \throws BufferError_InvalidEncodingUnit with "CODEC" = "Utf8Decoder" and "CAUSE" =
    ///   "BadUft8Encoding" for a sequence that is cut short (`bytes` then begins at its lead
    ///   byte) or has a byte not of the form 10xxxxxx (at that byte); without parameters for FE
    ///   and FF (at that byte). `text` keeps what was decoded before.
    /// \throws std::bad_alloc; `bytes` then begins at the first sequence that `text` lacks
    static void decode(BufferRange<unsigned char>& bytes, GenericBuffer<wchar_t>& text) {
        while (!bytes.empty()) {
            const std::size_t length = checkedLength(bytes);
            text.append(valueOf(bytes.data(), length));
            bytes.advance(length);
        }
    }

private:
    static constexpr wchar_t sourceFile[] = L"util\\include\\bufcodecs.h";

    /// The length of the sequence that `bytes` begin with. What precedes an offending byte is
    /// consumed before the throw.
    static std::size_t checkedLength(BufferRange<unsigned char>& bytes) {
        const unsigned char lead = bytes[0];
        if (lead >= 0xFE)
            throw korv::makeEvent<BufferError_InvalidEncodingUnit>(sourceFile);
        const std::size_t length = sequenceLength(lead);
        if (bytes.size() < length)
            throw korv::makeEvent<BufferError_InvalidEncodingUnit>(
                sourceFile, {{L"CODEC", L"Utf8Decoder"}, {L"CAUSE", L"BadUft8Encoding"}});
        for (std::size_t i = 1; i != length; ++i)
            if ((bytes[i] & 0xC0) != 0x80) {
                bytes.advance(i);
                throw korv::makeEvent<BufferError_InvalidEncodingUnit>(
                    sourceFile, {{L"CODEC", L"Utf8Decoder"}, {L"CAUSE", L"BadUft8Encoding"}});
            }
        return length;
    }

    static wchar_t valueOf(const unsigned char* sequence, std::size_t length) noexcept {
        unsigned value = length == 1 ? sequence[0] : sequence[0] & (0x7Fu >> length);
        for (std::size_t i = 1; i != length; ++i)
            value = value * 64 + (sequence[i] & 0x3Fu);
        // At most 31 bits have come together; the text has room for the low 16.
        return static_cast<wchar_t>(static_cast<std::uint16_t>(value));
    }

    static constexpr std::size_t sequenceLength(unsigned char lead) noexcept {
        if (lead < 0x80)
            return 1;
        if (lead < 0xE0)
            return 2;
        if (lead < 0xF0)
            return 3;
        if (lead < 0xF8)
            return 4;
        return lead < 0xFC ? 5 : 6;
    }
};

/// Encodes UTF-16 units as UTF-8, each unit by itself: the two halves of a surrogate pair become
/// two sequences of three bytes, which `Utf8Decoder` turns back into the same pair.
class Utf8Encoder {
public:
    /// Appends the encoding of `text` to `bytes`. No terminating zero is counted.
    /// \throws std::bad_alloc; `bytes` has its old contents then
    static void encode(BufferRange<wchar_t> text, GenericBuffer<unsigned char>& bytes) {
        const std::size_t oldSize = bytes.size();
        std::size_t written = oldSize;
        try {
            for (const wchar_t unit : text) {
                if (bytes.size() - written < longestSequence)
                    bytes.resize(written + growthStep);
                written += encodeUnit(static_cast<std::uint16_t>(unit), bytes.data() + written);
            }
        } catch (...) {
            // What has grown is nobody else's, so cutting it back does not allocate.
            if (bytes.size() != oldSize)
                bytes.resize(oldSize);
            throw;
        }
        bytes.resize(written);
    }

private:
    static constexpr std::size_t longestSequence = 3;
    static constexpr std::size_t growthStep = 6;

    static std::size_t encodeUnit(std::uint16_t unit, unsigned char* out) noexcept {
        if (unit <= 0x7F) {
            out[0] = static_cast<unsigned char>(unit);
            return 1;
        }
        if (unit <= 0x7FF) {
            out[0] = static_cast<unsigned char>(0xC0 | (unit >> 6));
            out[1] = continuation(unit);
            return 2;
        }
        out[0] = static_cast<unsigned char>(0xE0 | (unit >> 12));
        out[1] = continuation(static_cast<std::uint16_t>(unit >> 6));
        out[2] = continuation(unit);
        return 3;
    }

    static unsigned char continuation(std::uint16_t bits) noexcept {
        return static_cast<unsigned char>(0x80 | (bits & 0x3F));
    }
};

/// The lower-case form of one element.
template <class T>
struct Lower;

/// The lower-case form of a UTF-16 unit.
template <>
struct Lower<wchar_t> {
    /// Unicode's simple lower-case mapping of a UTF-16 unit, whatever the locale; a unit without
    /// one, or whose lower-case form is no single unit, stays as it is.
    CERTSTOREUPDATER_API static wchar_t apply(wchar_t unit) noexcept;
};

/// Text of the same length, every unit mapped by `Lower<wchar_t>::apply`.
/// \throws std::bad_alloc
inline TmpBuffer<wchar_t> toLower(BufferRange<wchar_t> text) {
    TmpBuffer<wchar_t> lower(text.size());
    for (std::size_t i = 0; i != text.size(); ++i)
        lower.data()[i] = Lower<wchar_t>::apply(text[i]);
    return lower;
}

} // namespace buffer
