// Hexadecimal and UTF-8: what is written, what is read back, and what is refused where.
#include "allocationcount.h"
#include "bufcodecs.h"
#include "throwsite.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <clocale>
#include <cwchar>
#endif

using buffer::Buffer;
using buffer::BufferError_InvalidEncodingUnit;
using buffer::BufferRange;
using buffer::TmpBuffer;
using buffer::Utf8Decoder;
using buffer::Utf8Encoder;
using testsupport::AllocationCount;

namespace {

using Bytes = std::vector<unsigned char>;
using Units = std::vector<std::uint16_t>;

BufferRange<unsigned char> rangeOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

Buffer<wchar_t> wide(const Units& units) {
    Buffer<wchar_t> text(L"");
    for (const std::uint16_t unit : units)
        text.append(static_cast<wchar_t>(unit));
    return text;
}

Units unitsOf(const Buffer<wchar_t>& text) {
    Units units;
    for (const wchar_t unit : text)
        units.push_back(static_cast<std::uint16_t>(unit));
    return units;
}

Units decoded(const Bytes& bytes) {
    Buffer<wchar_t> text;
    auto range = rangeOf(bytes);
    Utf8Decoder::decode(range, text);
    EXPECT_TRUE(range.empty());
    return unitsOf(text);
}

Bytes encoded(const Units& units) {
    Buffer<unsigned char> bytes;
    Utf8Encoder::encode(wide(units), bytes);
    EXPECT_EQ(bytes.data()[bytes.size()], 0);
    return {bytes.begin(), bytes.end()};
}

/// What a refused input leaves behind.
struct Refusal {
    std::size_t position = 0; ///< how many bytes were consumed
    Units text;
    std::vector<std::wstring> params; ///< key, value, key, value, ...
};

Refusal refusal(const Bytes& bytes) {
    Refusal result;
    auto range = rangeOf(bytes);
    Buffer<wchar_t> text;
    try {
        Utf8Decoder::decode(range, text);
        ADD_FAILURE() << "accepted";
    } catch (const BufferError_InvalidEncodingUnit& error) {
        for (const auto& param : error.params()) {
            result.params.emplace_back(param.key.c_str());
            result.params.emplace_back(param.value.c_str());
        }
    }
    result.position = static_cast<std::size_t>(range.begin() - bytes.data());
    result.text = unitsOf(text);
    EXPECT_EQ(text.c_str()[text.size()], L'\0');
    return result;
}

const std::vector<std::wstring> badEncoding = {L"CODEC", L"Utf8Decoder", L"CAUSE",
                                               L"BadUft8Encoding"};

/// What lead bytes of one class mean.
struct LeadClass {
    unsigned first;
    unsigned last;
    unsigned continuations;
    unsigned kept;
};

constexpr LeadClass leadClasses[] = {
    {0x00, 0x7F, 0, 0x7F}, {0x80, 0xDF, 1, 0x1F}, {0xE0, 0xEF, 2, 0x0F},
    {0xF0, 0xF7, 3, 0x07}, {0xF8, 0xFB, 4, 0x03}, {0xFC, 0xFD, 5, 0x01},
};

bool isSurrogate(unsigned unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

/// UTF-8 of a character as the system's own library writes it.
class SystemEncoder {
public:
#ifdef _WIN32
    Bytes operator()(std::uint16_t unit) const {
        const auto character = static_cast<wchar_t>(unit);
        char bytes[8];
        const int length =
            WideCharToMultiByte(CP_UTF8, 0, &character, 1, bytes, sizeof(bytes), nullptr, nullptr);
        return {bytes, bytes + length};
    }
#else
    SystemEncoder() : previous_(uselocale(utf8_)) {}
    ~SystemEncoder() {
        uselocale(previous_);
        freelocale(utf8_);
    }
    SystemEncoder(const SystemEncoder&) = delete;
    SystemEncoder& operator=(const SystemEncoder&) = delete;

    Bytes operator()(std::uint16_t unit) const {
        std::mbstate_t state{};
        char bytes[16];
        const std::size_t length = std::wcrtomb(bytes, static_cast<wchar_t>(unit), &state);
        return length > sizeof(bytes) ? Bytes() : Bytes(bytes, bytes + length);
    }

private:
    locale_t utf8_ = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
    locale_t previous_;
#endif
};

} // namespace

// ---- Hexadecimal

TEST(HexEncode, WritesTwoUpperCaseDigitsAByteHighNibbleFirst) {
    const Bytes bytes = {0x00, 0xAB, 0xFF};
    EXPECT_STREQ(buffer::hexEncode(rangeOf(bytes)).c_str(), L"00ABFF");
}

TEST(HexEncode, OfNothingIsEmptyAndNotNull) {
    const TmpBuffer<wchar_t> text = buffer::hexEncode({});
    EXPECT_TRUE(text.empty());
    EXPECT_FALSE(text.isNull());
    EXPECT_FALSE(buffer::hexEncode(Buffer<unsigned char>()).isNull());
}

TEST(HexEncode, AgreesWithPrintfForEveryByte) {
    Bytes bytes;
    std::wstring expected;
    for (unsigned value = 0; value != 256; ++value) {
        bytes.push_back(static_cast<unsigned char>(value));
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02X", value);
        expected.append(digits, digits + 2);
    }
    const TmpBuffer<wchar_t> text = buffer::hexEncode(rangeOf(bytes));
    EXPECT_EQ(text.size(), 512u);
    EXPECT_EQ(std::wstring(text.c_str()), expected);
}

TEST(HexEncode, AllocatesOnceAtMostAndOnlyForMoreThanSevenBytes) {
    const Bytes bytes(8, 0x5A);
    const AllocationCount count;
    const TmpBuffer<wchar_t> seven = buffer::hexEncode({bytes.data(), std::size_t{7}});
    EXPECT_EQ(count.allocations(), 0u);
    const TmpBuffer<wchar_t> eight = buffer::hexEncode({bytes.data(), std::size_t{8}});
    EXPECT_EQ(count.allocations(), 1u);
    EXPECT_STREQ(seven.c_str(), L"5A5A5A5A5A5A5A");
    EXPECT_STREQ(eight.c_str(), L"5A5A5A5A5A5A5A5A");
}

// ---- UTF-8 into text

TEST(Utf8Decode, ReadsSequencesOfOneTwoAndThreeBytes) {
    EXPECT_EQ(decoded({0x41}), Units{0x0041});
    EXPECT_EQ(decoded({0xC3, 0xA9}), Units{0x00E9});
    EXPECT_EQ(decoded({0xE2, 0x82, 0xAC}), Units{0x20AC});
}

TEST(Utf8Decode, KeepsTheLowSixteenBitsOfLongerSequences) {
    EXPECT_EQ(decoded({0xF0, 0x9F, 0x98, 0x80}), Units{0xF600});
    EXPECT_EQ(decoded({0xF0, 0x90, 0x80, 0x80}), Units{0x0000});
    EXPECT_EQ(decoded({0xF4, 0x8F, 0xBF, 0xBF}), Units{0xFFFF});
    EXPECT_EQ(decoded({0xF8, 0x88, 0x80, 0x80, 0x81}), Units{0x0001});
    EXPECT_EQ(decoded({0xFD, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF}), Units{0xFFFF});
    EXPECT_EQ(decoded({0xFC, 0x84, 0x80, 0x84, 0x8D, 0x85}), Units{0x4345});
}

TEST(Utf8Decode, TakesAContinuationByteInLeadPositionAsALeadByteOfTwo) {
    EXPECT_EQ(decoded({0x80, 0x80}), Units{0x0000});
    EXPECT_EQ(decoded({0xBF, 0xBF}), Units{0x07FF});
    EXPECT_EQ(decoded({0x81, 0x82, 0x41}), (Units{0x0042, 0x0041}));
}

TEST(Utf8Decode, ReadsTheFirstAndLastValueOfEachLength) {
    EXPECT_EQ(decoded({0x00}), Units{0x0000});
    EXPECT_EQ(decoded({0x7F}), Units{0x007F});
    EXPECT_EQ(decoded({0xC2, 0x80}), Units{0x0080});
    EXPECT_EQ(decoded({0xDF, 0xBF}), Units{0x07FF});
    EXPECT_EQ(decoded({0xE0, 0xA0, 0x80}), Units{0x0800});
    EXPECT_EQ(decoded({0xEF, 0xBF, 0xBF}), Units{0xFFFF});
}

TEST(Utf8Decode, AcceptsOverlongFormsAndSurrogatesAsTheyCome) {
    EXPECT_EQ(decoded({0xC0, 0x80}), Units{0x0000});
    EXPECT_EQ(decoded({0xC1, 0x81}), Units{0x0041});
    EXPECT_EQ(decoded({0xE0, 0x81, 0x81}), Units{0x0041});
    EXPECT_EQ(decoded({0xF0, 0x80, 0x81, 0x81}), Units{0x0041});
    EXPECT_EQ(decoded({0xED, 0xA0, 0xBD, 0xED, 0xB8, 0x80}), (Units{0xD83D, 0xDE00}));
}

TEST(Utf8Decode, FollowsTheTableForEveryLeadByte) {
    const unsigned char patterns[] = {0x80, 0x81, 0xAA, 0x95, 0xBF};
    for (const LeadClass& row : leadClasses)
        for (unsigned lead = row.first; lead <= row.last; ++lead)
            for (const unsigned char pattern : patterns) {
                Bytes bytes = {static_cast<unsigned char>(lead)};
                std::uint64_t value = lead & row.kept;
                for (unsigned i = 0; i != row.continuations; ++i) {
                    // Each continuation byte another one, so that their order matters.
                    const unsigned bits = (pattern + 7 * i) & 0x3F;
                    bytes.push_back(static_cast<unsigned char>(0x80 | bits));
                    value = value * 64 + bits;
                }
                ASSERT_EQ(decoded(bytes), Units{static_cast<std::uint16_t>(value)})
                    << "lead byte " << lead;
            }
}

TEST(Utf8Decode, AppendsToTheTextThatIsThere) {
    Buffer<wchar_t> text(L"CKAIDHEX:");
    const Bytes bytes = {'0', '0', 'A', 'B', 0xC3, 0xA9, 'x', 'y', 'z'};
    auto range = rangeOf(bytes);
    Utf8Decoder::decode(range, text);
    EXPECT_STREQ(text.c_str(), L"CKAIDHEX:00AB\u00E9xyz");
}

TEST(Utf8Decode, KeepsZerosAndTerminates) {
    Buffer<wchar_t> text;
    const Bytes bytes(20, 0x00);
    auto range = rangeOf(bytes);
    Utf8Decoder::decode(range, text);
    EXPECT_EQ(text.size(), 20u);
    EXPECT_EQ(text.data()[20], L'\0');
}

TEST(Utf8Decode, OfAnOffendingFirstSequenceLeavesTheTextAsItIs) {
    for (const std::vector<unsigned char>& input :
         {std::vector<unsigned char>{0xFF, 0x41}, std::vector<unsigned char>{0xC3},
          std::vector<unsigned char>{0xC3, 0x41, 0x42}}) {
        Buffer<wchar_t> null;
        buffer::BufferRange<unsigned char> bytes(input.data(), input.size());
        EXPECT_THROW(Utf8Decoder::decode(bytes, null), buffer::BufferError_InvalidEncodingUnit);
        EXPECT_TRUE(null.isNull());
    }
}

TEST(Utf8Decode, OfNothingLeavesTheTextAsItIs) {
    Buffer<wchar_t> null;
    Buffer<wchar_t> empty(L"");
    BufferRange<unsigned char> nothing;
    Utf8Decoder::decode(nothing, null);
    Utf8Decoder::decode(nothing, empty);
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(empty.isNull());
    EXPECT_TRUE(empty.empty());
}

TEST(Utf8Decode, LeavesCopiesOfTheTextAlone) {
    Buffer<wchar_t> text(L"text of more than fifteen units");
    const Buffer<wchar_t> copy = text;
    const Bytes bytes = {'x'};
    auto range = rangeOf(bytes);
    Utf8Decoder::decode(range, text);
    EXPECT_STREQ(text.c_str(), L"text of more than fifteen unitsx");
    EXPECT_STREQ(copy.c_str(), L"text of more than fifteen units");
}

TEST(Utf8Decode, WritesNoFurtherThanItsRoomWhereSequencesThatWereNotForeseenCameBefore) {
    // Space is foreseen for the last ones only, and is nearly full when they come.
    for (const std::size_t pairs : {1u, 7u, 59u, 60u, 61u, 66u, 67u}) {
        Bytes bytes(2 * pairs, 0x80);
        Units expected(pairs, 0x0000);
        bytes.insert(bytes.end(), 67, 'a');
        expected.insert(expected.end(), 67, 'a');
        EXPECT_EQ(decoded(bytes), expected) << pairs;
    }
}

// Then the text has more room than bytes are left. Their block ends with them, so that a sanitizer
// sees who reads on.
TEST(Utf8Decode, ReadsNoFurtherThanTheBytesWhereSequencesThatWereNotForeseenCameBefore) {
    for (std::size_t pairs = 0; pairs != 20; ++pairs)
        for (std::size_t letters = 0; letters != 20; ++letters) {
            Bytes bytes(2 * pairs + letters, 0x80);
            std::fill_n(bytes.rbegin(), letters, static_cast<unsigned char>('a'));
            Units expected(pairs, 0x0000);
            expected.insert(expected.end(), letters, 'a');
            EXPECT_EQ(decoded(bytes), expected) << pairs << ' ' << letters;
        }
}

TEST(Utf8Decode, AllocatesOnceForLongText) {
    const Bytes bytes(10000, 'x');
    Buffer<wchar_t> text;
    auto range = rangeOf(bytes);
    const AllocationCount count;
    Utf8Decoder::decode(range, text);
    EXPECT_EQ(text.size(), 10000u);
    EXPECT_EQ(count.allocations(), 1u);
}

TEST(Utf8DecodeRefuses, AByteThatIsNoContinuationAtThatByte) {
    const Refusal result = refusal({0xC3, 0x41});
    EXPECT_EQ(result.params, badEncoding);
    EXPECT_EQ(result.position, 1u);
    EXPECT_TRUE(result.text.empty());
}

TEST(Utf8DecodeRefuses, AByteThatIsNoContinuationWhereverItStands) {
    for (const LeadClass& row : leadClasses)
        for (unsigned position = 1; position <= row.continuations; ++position)
            for (const unsigned char offending : Bytes{0x00, 0x41, 0x7F, 0xC0, 0xE2, 0xFE, 0xFF}) {
                Bytes bytes = {'a', 0xC3, 0xA9, static_cast<unsigned char>(row.last)};
                bytes.resize(4 + row.continuations, 0xBF);
                bytes[3 + position] = offending;
                bytes.push_back('z');

                const Refusal result = refusal(bytes);
                EXPECT_EQ(result.params, badEncoding);
                EXPECT_EQ(result.position, 3 + position) << row.last << ' ' << +offending;
                EXPECT_EQ(result.text, (Units{'a', 0xE9}));
            }
}

TEST(Utf8DecodeRefuses, ASequenceCutShortAtItsLeadByte) {
    EXPECT_EQ(refusal({0xC3}).params, badEncoding);
    EXPECT_EQ(refusal({0x80}).params, badEncoding);
    for (const LeadClass& row : leadClasses)
        for (unsigned present = 0; present < row.continuations; ++present)
            for (const unsigned lead : {row.first, row.last}) {
                Bytes bytes = {'a', 'b', static_cast<unsigned char>(lead)};
                bytes.resize(3 + present, 0x80);

                const Refusal result = refusal(bytes);
                EXPECT_EQ(result.params, badEncoding);
                EXPECT_EQ(result.position, 2u) << lead << " with " << present;
                EXPECT_EQ(result.text, (Units{'a', 'b'}));
            }
}

TEST(Utf8DecodeRefuses, ASequenceCutShortWhateverItsBytesAre) {
    const Refusal result = refusal({0xE2, 0x41});
    EXPECT_EQ(result.params, badEncoding);
    EXPECT_EQ(result.position, 0u);
}

TEST(Utf8DecodeRefuses, FeAndFfWithoutParametersAtThatByte) {
    for (const unsigned char lead : Bytes{0xFE, 0xFF}) {
        EXPECT_TRUE(refusal({lead}).params.empty());
        EXPECT_EQ(refusal({lead}).position, 0u);

        const Refusal result = refusal({'a', 0xC3, 0xA9, lead, 0x80, 0x80});
        EXPECT_TRUE(result.params.empty());
        EXPECT_EQ(result.position, 3u);
        EXPECT_EQ(result.text, (Units{'a', 0xE9}));
    }
}

TEST(Utf8DecodeRefuses, WithAnEventOfTheCodecsHeader) {
    const Bytes inputs[] = {{0xC3, 0x41}, {0xC3}, {0xFF}};
    for (const Bytes& input : inputs) {
        auto range = rangeOf(input);
        Buffer<wchar_t> text;
        try {
            Utf8Decoder::decode(range, text);
            FAIL();
        } catch (const buffer::BufferError& error) {
            EXPECT_STREQ(error.what(), "BufferError_InvalidEncodingUnit");
            EXPECT_STREQ(error.file().c_str(), L"util\\include\\bufcodecs.h");
            testsupport::expectThrowSite(error);
            EXPECT_EQ(error.code(), 0u);
            EXPECT_EQ(error.parent(), nullptr);
        }
    }
}

TEST(Utf8DecodeRefuses, AndGoesOnBehindTheOffendingByteIfAsked) {
    const Bytes bytes = {'a', 0xFF, 'b', 0xC3, 'c'};
    auto range = rangeOf(bytes);
    Buffer<wchar_t> text;
    EXPECT_THROW(Utf8Decoder::decode(range, text), BufferError_InvalidEncodingUnit);
    range.advance(1);
    EXPECT_THROW(Utf8Decoder::decode(range, text), BufferError_InvalidEncodingUnit);
    Utf8Decoder::decode(range, text);
    EXPECT_STREQ(text.c_str(), L"abc");
}

// ---- Text into UTF-8

TEST(Utf8Encode, WritesOneTwoOrThreeBytesAUnit) {
    EXPECT_EQ(encoded({0x00E9}), (Bytes{0xC3, 0xA9}));
    EXPECT_EQ(encoded({0x20AC}), (Bytes{0xE2, 0x82, 0xAC}));
    EXPECT_EQ(encoded({0x0000}), Bytes{0x00});
    EXPECT_EQ(encoded({0x007F}), Bytes{0x7F});
    EXPECT_EQ(encoded({0x0080}), (Bytes{0xC2, 0x80}));
    EXPECT_EQ(encoded({0x07FF}), (Bytes{0xDF, 0xBF}));
    EXPECT_EQ(encoded({0x0800}), (Bytes{0xE0, 0xA0, 0x80}));
    EXPECT_EQ(encoded({0xFFFF}), (Bytes{0xEF, 0xBF, 0xBF}));
}

TEST(Utf8Encode, WritesEachHalfOfASurrogatePairByItself) {
    EXPECT_EQ(encoded({0xD83D, 0xDE00}), (Bytes{0xED, 0xA0, 0xBD, 0xED, 0xB8, 0x80}));
    EXPECT_EQ(encoded({0xDE00}), (Bytes{0xED, 0xB8, 0x80}));
}

TEST(Utf8Encode, AgreesWithTheSystemForEveryUnitThatIsACharacter) {
    const SystemEncoder system;
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit)
        if (!isSurrogate(unit)) {
            const auto narrow = static_cast<std::uint16_t>(unit);
            ASSERT_EQ(encoded({narrow}), system(narrow)) << unit;
        }
}

TEST(Utf8Encode, ReadsBackEveryUnitAlone) {
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        const Units one = {static_cast<std::uint16_t>(unit)};
        ASSERT_EQ(decoded(encoded(one)), one) << unit;
    }
}

TEST(Utf8Encode, ReadsBackEveryUnitInOneText) {
    Units all;
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit)
        all.push_back(static_cast<std::uint16_t>(unit));
    const Bytes bytes = encoded(all);
    EXPECT_EQ(bytes.size(), 0x80u + 2 * 0x780u + 3 * 0xF800u);
    EXPECT_EQ(decoded(bytes), all);
}

TEST(Utf8Encode, AppendsExactlyWhatItWritesAtEveryFillOfTheBuffer) {
    const Units texts[] = {{'a'}, {0xE9}, {0x20AC}, {'a', 0x20AC, 0xE9, 0x20AC, 'b'}};
    for (const Units& units : texts)
        for (std::size_t present = 0; present != 60; ++present) {
            const Bytes before(present, 0x2E);
            Buffer<unsigned char> bytes(before.data(), before.size());
            Utf8Encoder::encode(wide(units), bytes);
            Bytes expected = before;
            const Bytes written = encoded(units);
            expected.insert(expected.end(), written.begin(), written.end());
            ASSERT_EQ(Bytes(bytes.begin(), bytes.end()), expected);
            ASSERT_EQ(bytes.data()[bytes.size()], 0);
        }
}

TEST(Utf8Encode, GrowsAheadByTwoOfTheLongestSequences) {
    // Nine bytes leave room for six more in the object; with ten a block has to come.
    const Units one = {'x'};
    for (const std::size_t present : {9u, 10u}) {
        const Bytes before(present, 0x2E);
        Buffer<unsigned char> bytes(before.data(), before.size());
        const Buffer<wchar_t> text = wide(one);
        const AllocationCount count;
        Utf8Encoder::encode(text, bytes);
        EXPECT_EQ(count.allocations(), present == 9 ? 0u : 1u);
        EXPECT_EQ(count.releases(), count.allocations());
        EXPECT_EQ(bytes.size(), present + 1);
        EXPECT_EQ(bytes.references(), 0u);
    }
}

TEST(Utf8Encode, OfNothingAddsNothingAndIsNotNull) {
    Buffer<unsigned char> bytes;
    Utf8Encoder::encode({}, bytes);
    EXPECT_TRUE(bytes.empty());
    EXPECT_FALSE(bytes.isNull());

    Buffer<unsigned char> present(reinterpret_cast<const unsigned char*>("abc"), 3);
    Utf8Encoder::encode({}, present);
    EXPECT_EQ(present.size(), 3u);
}

TEST(Utf8Encode, LeavesCopiesOfTheBytesAlone) {
    const Bytes before(20, 0x2E);
    Buffer<unsigned char> bytes(before.data(), before.size());
    const Buffer<unsigned char> copy = bytes;
    Utf8Encoder::encode(Buffer<wchar_t>(L"x"), bytes);
    EXPECT_EQ(bytes.size(), 21u);
    EXPECT_EQ(Bytes(copy.begin(), copy.end()), before);
    EXPECT_EQ(copy.data()[20], 0);
}

TEST(Utf8Encode, AllocatesSeldomForLongText) {
    const Buffer<wchar_t> text = wide(Units(10000, 0x20AC));
    Buffer<unsigned char> bytes;
    const AllocationCount count;
    Utf8Encoder::encode(text, bytes);
    EXPECT_EQ(bytes.size(), 30000u);
    EXPECT_LE(count.allocations(), 20u);
}
