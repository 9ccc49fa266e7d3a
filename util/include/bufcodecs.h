// Text codecs: hexadecimal, UTF-8 in both directions, lower-casing.
#pragma once

#include "buffer.h"
#include "buffererror.h"
#include "makeevent.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace buffer {

namespace detail {

/// The two digits of every byte.
inline constexpr auto hexDigits = [] {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::array<std::array<wchar_t, 2>, 256> pairs{};
    for (std::size_t byte = 0; byte != pairs.size(); ++byte)
        pairs[byte] = {static_cast<wchar_t>(digits[byte >> 4]),
                       static_cast<wchar_t>(digits[byte & 0x0F])};
    return pairs;
}();

} // namespace detail

/// Upper-case hexadecimal text, two digits a byte, high nibble first, nothing between them.
/// Nothing gives empty, not null, text.
/// \throws std::bad_alloc
inline TmpBuffer<wchar_t> hexEncode(BufferRange<unsigned char> bytes) {
    TmpBuffer<wchar_t> text(bytes.size() * 2);
    wchar_t* out = text.data();
    for (const unsigned char octet : bytes) {
        const auto& digits = detail::hexDigits[octet];
        std::memcpy(out, digits.data(), sizeof digits);
        out += digits.size();
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
    /// \throws std::bad_alloc; `bytes` then begins at the first sequence that `text` lacks, which
    ///   is null still if it was null and lacks all of them
    static void decode(BufferRange<unsigned char>& bytes, GenericBuffer<wchar_t>& text) {
        if (bytes.empty())
            return;
        // Before the text gets its room: one that gets no character stays as it was.
        checkedLength(bytes);
        Output output(text, leadBytes(bytes));
        while (!bytes.empty()) {
            decodeUsual(bytes, output);
            if (bytes.empty())
                return;
            const std::size_t length = checkedLength(bytes);
            output.append(valueOf(bytes.data(), length), bytes.size());
            bytes.advance(length);
        }
    }

private:
    static constexpr wchar_t sourceFile[] = L"util\\include\\bufcodecs.h";
    static constexpr std::size_t atOnce = sizeof(std::uint64_t);

    static std::uint64_t eightBytes(const unsigned char* bytes) noexcept {
        std::uint64_t eight;
        std::memcpy(&eight, bytes, atOnce);
        return eight;
    }

    static constexpr bool isContinuation(unsigned char byte) noexcept {
        return (byte & 0xC0) == 0x80;
    }

    /// How many bytes are no continuation bytes: as many sequences as there are in proper UTF-8.
    static std::size_t leadBytes(BufferRange<unsigned char> bytes) noexcept {
        std::size_t count = bytes.size();
        const unsigned char* position = bytes.begin();
        for (; bytes.end() - position >= static_cast<std::ptrdiff_t>(atOnce); position += atOnce) {
            // Of each byte the bit that is set in 10xxxxxx only, moved to where it counts as 1.
            const std::uint64_t eight = eightBytes(position);
            const std::uint64_t continuations = eight >> 7 & ~(eight >> 6) & 0x0101'0101'0101'0101u;
            // Their sum in the highest byte: std::popcount calls a function where the processor
            // may be an old one.
            count -= static_cast<std::size_t>(continuations * 0x0101'0101'0101'0101u >> 56);
        }
        return count -
               static_cast<std::size_t>(std::count_if(position, bytes.end(), isContinuation));
    }

    /// Appends to a text that has its room beforehand, so that a long one is not moved again and
    /// again. The text is as long as what was appended when this object goes.
    class Output {
    public:
        Output(GenericBuffer<wchar_t>& text, std::size_t expected)
            : text_(text), size_(text.size()), wasNull_(text.isNull()) {
            text.resize(size_ + expected);
        }
        // What has grown is nobody else's, so cutting it back does not allocate.
        ~Output() { // NOLINT(bugprone-exception-escape)
            if (wasNull_ && size_ == 0)
                text_.reset();
            else if (size_ != text_.size())
                text_.resize(size_);
        }
        Output(const Output&) = delete;
        Output& operator=(const Output&) = delete;

        /// \param bytesLeft more characters than these bytes cannot come
        void append(wchar_t character, std::size_t bytesLeft) {
            if (size_ == text_.size())
                text_.resize(size_ + bytesLeft);
            text_.data()[size_++] = character;
        }

        wchar_t* position() const noexcept { return text_.data() + size_; }
        wchar_t* end() const noexcept { return text_.data() + text_.size(); }
        void appendedUpTo(const wchar_t* position) noexcept {
            size_ = static_cast<std::size_t>(position - text_.data());
        }

    private:
        GenericBuffer<wchar_t>& text_;
        std::size_t size_;
        bool wasNull_;
    };

    /// Decodes sequences of up to three bytes as long as they are well formed and there is room;
    /// eight ASCII characters at a time.
    static void decodeUsual(BufferRange<unsigned char>& bytes, Output& output) noexcept {
        const unsigned char* in = bytes.begin();
        const unsigned char* const inEnd = bytes.end();
        wchar_t* out = output.position();
        wchar_t* const outEnd = output.end();
        while (in != inEnd && out != outEnd) {
            const auto left = static_cast<std::size_t>(inEnd - in);
            const unsigned char lead = *in;
            if (lead < 0x80) {
                if (left >= atOnce && outEnd - out >= static_cast<std::ptrdiff_t>(atOnce) &&
                    (eightBytes(in) & 0x8080'8080'8080'8080u) == 0) {
                    for (std::size_t i = 0; i != atOnce; ++i)
                        out[i] = static_cast<wchar_t>(in[i]);
                    in += atOnce;
                    out += atOnce;
                } else {
                    *out++ = static_cast<wchar_t>(lead);
                    ++in;
                }
            } else if (lead < 0xE0 && left >= 2 && isContinuation(in[1])) {
                *out++ = static_cast<wchar_t>((lead & 0x1F) << 6 | (in[1] & 0x3F));
                in += 2;
            } else if (lead >= 0xE0 && lead < 0xF0 && left >= 3 && isContinuation(in[1]) &&
                       isContinuation(in[2])) {
                *out++ = static_cast<wchar_t>((lead & 0x0F) << 12 | (in[1] & 0x3F) << 6 |
                                              (in[2] & 0x3F));
                in += 3;
            } else
                break;
        }
        output.appendedUpTo(out);
        bytes.advance(static_cast<std::size_t>(in - bytes.begin()));
    }

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
            if (!isContinuation(bytes[i])) {
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
    /// \throws std::bad_alloc; `bytes` has its old contents then, and is null if it was null
    static void encode(BufferRange<wchar_t> text, GenericBuffer<unsigned char>& bytes) {
        const bool wasNull = bytes.isNull();
        const std::size_t oldSize = bytes.size();
        std::size_t written = oldSize;
        std::size_t room = oldSize; // what is there may be shared, so it is no room
        try {
            while (!text.empty()) {
                if (room - written < longestSequence)
                    room = grow(bytes, written);
                const std::size_t fitting =
                    std::min(text.size(), (room - written) / longestSequence);
                const unsigned char* const end =
                    encodeUnits({text.begin(), fitting}, bytes.data() + written);
                written = static_cast<std::size_t>(end - bytes.data());
                text.advance(fitting);
            }
        } catch (...) {
            // What has grown is nobody else's, so cutting it back does not allocate.
            if (wasNull)
                bytes.reset();
            else if (bytes.size() != oldSize)
                bytes.resize(oldSize);
            throw;
        }
        bytes.resize(written);
    }

private:
    static constexpr std::size_t longestSequence = 3;
    static constexpr std::size_t growthStep = 6;

    /// \returns up to where `bytes` may be written to
    static std::size_t grow(GenericBuffer<unsigned char>& bytes, std::size_t written) {
        if (written != bytes.size())
            bytes.resize(written); // moving keeps what counts as contents
        bytes.resize(written + growthStep);
        return bytes.capacity();
    }

    /// \returns the position behind what was written, as does `encodeUnit`
    static unsigned char* encodeUnits(BufferRange<wchar_t> units, unsigned char* out) noexcept {
        for (const wchar_t unit : units)
            out = encodeUnit(static_cast<std::uint16_t>(unit), out);
        return out;
    }

    static unsigned char* encodeUnit(std::uint16_t unit, unsigned char* out) noexcept {
        if (unit <= 0x7F) {
            *out++ = static_cast<unsigned char>(unit);
            return out;
        }
        if (unit <= 0x7FF)
            *out++ = static_cast<unsigned char>(0xC0 | (unit >> 6));
        else {
            *out++ = static_cast<unsigned char>(0xE0 | (unit >> 12));
            *out++ = continuation(static_cast<std::uint16_t>(unit >> 6));
        }
        *out++ = continuation(unit);
        return out;
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
