// Every operation of this layer that allocates, with each of its allocations failing in turn:
// std::bad_alloc comes out, nothing leaks, and what was there before is as it was.
#include "allocationcount.h"
#include "bufcodecs.h"
#include "makeevent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

using buffer::Buffer;
using buffer::BufferRange;
using buffer::TmpBuffer;
using korv::GenericEvent;
using testsupport::AllocationCount;
using testsupport::failEachAllocation;

namespace {

const wchar_t longText[] = L"a text of more than fifteen units";
const wchar_t otherText[] = L"another text of more than fifteen";

std::wstring text(const Buffer<wchar_t>& buffer) {
    return {buffer.begin(), buffer.end()};
}

/// A buffer with a copy, both with `longText`.
struct SharedPair {
    Buffer<wchar_t> one{longText};
    Buffer<wchar_t> other{one};

    bool isUntouched() const {
        return one.data() == other.data() && one.references() == 2 && text(one) == longText;
    }
};

constexpr auto threwOnly = [](std::size_t n, bool threw) { EXPECT_TRUE(threw) << n; };

/// Runs an operation that changes nothing but what it makes, each allocation failing, and
/// expects as many allocations as releases each time.
template <class Operation>
std::size_t failEachBalanced(Operation operation) {
    const AllocationCount count;
    const std::size_t allocations = failEachAllocation(operation, threwOnly);
    // Of n + 1 runs n had one allocation that failed and so was never released.
    EXPECT_EQ(count.allocations() - count.releases(), allocations);
    return allocations;
}

KORV_EVENT_FAMILY(TrialError, GenericEvent);
KORV_EVENT_CLASS(TrialError_WithALongName, TrialError);

constexpr wchar_t sourceFile[] = L"tests\\util\\outofmemory_test.cpp";

TrialError_WithALongName fullEvent() {
    return korv::makeEvent<TrialError_WithALongName>(
        sourceFile, TrialError_WithALongName(sourceFile, 1),
        {{L"FIRST", longText}, {L"SECOND", otherText}});
}

} // namespace

// ---- Buffers

TEST(OutOfMemory, LeavesNothingBehindWhenABufferIsMade) {
    EXPECT_EQ(failEachBalanced([] { const Buffer<wchar_t> made(longText); }), 1u);
    EXPECT_EQ(failEachBalanced([] { const Buffer<unsigned char> made(std::size_t{16}); }), 1u);
    EXPECT_EQ(failEachBalanced([] { const Buffer<wchar_t> made(longText, 20); }), 1u);
    EXPECT_EQ(failEachBalanced([] { const TmpBuffer<wchar_t> made(longText, 20); }), 1u);
}

TEST(OutOfMemory, IsTheAnswerToABlockThatNoMemoryCouldHold) {
    using Manager = buffer::CounterReferencedBufferManager<wchar_t, std::atomic<std::uint32_t>,
                                                           std::char_traits<wchar_t>>;
    EXPECT_THROW(Manager::allocate(static_cast<std::size_t>(-1) / sizeof(wchar_t)), std::bad_alloc);
}

TEST(OutOfMemory, LeavesABufferAsItWasWhenItGrows) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{15}, std::size_t{20}}) {
        // Filled to its capacity, so that whatever is added needs a new block.
        Buffer<wchar_t> buffer(longText, size);
        while (buffer.size() != buffer.capacity())
            buffer.append(L'.');
        const Buffer<wchar_t> before(buffer.data(), buffer.size());
        const auto* block = buffer.data();
        const auto failOnce = [&](auto operation) {
            {
                AllocationCount count;
                count.failAt(1);
                EXPECT_THROW(operation(), std::bad_alloc);
            }
            EXPECT_EQ(buffer, before);
            EXPECT_EQ(buffer.data(), block);
            EXPECT_EQ(buffer.data()[buffer.size()], L'\0');
        };
        failOnce([&] { buffer.append(L'x'); });
        failOnce([&] { buffer.append(longText, 30); });
        failOnce([&] { buffer.append(buffer); });
        failOnce([&] { buffer.resize(buffer.size() + 1); });
        buffer.append(L'x');
        EXPECT_EQ(buffer.size(), before.size() + 1);
    }
}

TEST(OutOfMemory, LeavesSharedBlocksAsTheyWereWhenOneIsWritten) {
    SharedPair pair;
    const auto isUntouched = [&](std::size_t, bool threw) {
        EXPECT_TRUE(threw);
        EXPECT_TRUE(pair.isUntouched());
    };
    EXPECT_EQ(failEachAllocation([&] { pair.one.detach(); }, isUntouched), 1u);
    pair.one = pair.other;
    EXPECT_EQ(failEachAllocation([&] { pair.one.append(L'x'); }, isUntouched), 1u);
    pair.one = pair.other;
    EXPECT_EQ(failEachAllocation([&] { pair.one.resize(20); }, isUntouched), 1u);
}

TEST(OutOfMemory, LeavesBothSidesOfACopyAsTheyWere) {
    Buffer<wchar_t> source(longText);
    source.markNotShareable();
    Buffer<wchar_t> target(otherText);
    const auto isUntouched = [&](std::size_t, bool threw) {
        EXPECT_TRUE(threw);
        EXPECT_EQ(text(source), longText);
        EXPECT_EQ(text(target), otherText);
        EXPECT_EQ(target.references(), 1u);
    };
    EXPECT_EQ(failEachAllocation([&] { target = source; }, isUntouched), 1u);
    EXPECT_EQ(text(target), longText);
    EXPECT_EQ(failEachBalanced([&] { const Buffer<wchar_t> copy(source); }), 1u);
}

TEST(OutOfMemory, LeavesATmpBufferItsContentsWhenTheyCannotBeHandedOver) {
    TmpBuffer<wchar_t> temporary(longText, 20);
    temporary.markNotShareable();
    EXPECT_EQ(failEachAllocation([&] { const Buffer<wchar_t> taken(std::move(temporary)); },
                                 [&](std::size_t, bool threw) {
                                     EXPECT_TRUE(threw);
                                     EXPECT_EQ(temporary.size(), 20u);
                                     EXPECT_EQ(temporary[19], longText[19]);
                                 }),
              1u);
}

// ---- Codecs

TEST(OutOfMemory, ComesOutOfCodecsThatMakeText) {
    const std::vector<unsigned char> bytes(20, 0xAB);
    const BufferRange<unsigned char> range(bytes.data(), bytes.size());
    EXPECT_EQ(failEachBalanced([&] { (void)buffer::hexEncode(range); }), 1u);
    const Buffer<wchar_t> upper(L"TEXT OF MORE THAN FIFTEEN UNITS");
    EXPECT_EQ(failEachBalanced([&] { (void)buffer::toLower(upper); }), 1u);
}

TEST(OutOfMemory, LeavesTheDecoderWhereItCanGoOn) {
    std::vector<unsigned char> bytes;
    std::wstring expected;
    for (int i = 0; i != 100; ++i) {
        bytes.insert(bytes.end(), {0xC3, 0xA9, 'x'});
        expected += L"\u00E9x";
    }
    // Sequences that begin with a continuation byte are not foreseen: these need a second block.
    for (int i = 0; i != 1000; ++i) {
        bytes.insert(bytes.end(), {0x81, 0x82});
        expected += L'\x42';
    }
    BufferRange<unsigned char> range;
    Buffer<wchar_t> decoded;
    const std::size_t allocations = failEachAllocation(
        [&] {
            range = {bytes.data(), bytes.size()};
            decoded = Buffer<wchar_t>();
            buffer::Utf8Decoder::decode(range, decoded);
        },
        [&](std::size_t, bool threw) {
            EXPECT_TRUE(threw);
            EXPECT_LT(decoded.size(), expected.size());
            EXPECT_EQ(decoded.c_str()[decoded.size()], L'\0');
            // With memory again the same arguments give the rest.
            buffer::Utf8Decoder::decode(range, decoded);
            EXPECT_EQ(text(decoded), expected);
        });
    EXPECT_EQ(allocations, 2u);
    EXPECT_EQ(text(decoded), expected);
}

TEST(OutOfMemory, ComesOutOfADecoderThatRefusesItsInput) {
    const unsigned char bytes[] = {'a', 0xC3, 'b'};
    BufferRange<unsigned char> range;
    Buffer<wchar_t> decoded;
    bool refused = false;
    const std::size_t allocations = failEachAllocation(
        [&] {
            range = {bytes, std::size_t{3}};
            decoded = Buffer<wchar_t>();
            try {
                buffer::Utf8Decoder::decode(range, decoded);
            } catch (const buffer::BufferError_InvalidEncodingUnit&) {
                refused = true;
            }
        },
        [&](std::size_t, bool threw) {
            EXPECT_TRUE(threw);
            EXPECT_FALSE(refused);
            EXPECT_EQ(range.begin(), bytes + 2);
            EXPECT_EQ(text(decoded), L"a");
        });
    EXPECT_TRUE(refused);
    EXPECT_GT(allocations, 0u);
}

TEST(OutOfMemory, LeavesTheEncodersBytesAsTheyWere) {
    const Buffer<wchar_t> units = [] {
        Buffer<wchar_t> many;
        for (int i = 0; i != 100; ++i)
            many.append(L'\u20AC');
        return many;
    }();
    const std::vector<unsigned char> present(20, 0x2E);
    const Buffer<unsigned char> starts[] = {
        {}, {present.data(), 0}, {present.data(), 3}, {present.data(), present.size()}};
    for (const Buffer<unsigned char>& start : starts) {
        Buffer<unsigned char> bytes(start.data(), start.size());
        const auto isUntouched = [&](std::size_t, bool threw) {
            EXPECT_TRUE(threw);
            EXPECT_EQ(bytes, start);
            EXPECT_EQ(bytes.isNull(), start.isNull());
            EXPECT_EQ(bytes.c_str()[bytes.size()], 0);
        };
        const std::size_t allocations =
            failEachAllocation([&] { buffer::Utf8Encoder::encode(units, bytes); }, isUntouched);
        EXPECT_GT(allocations, 1u);
        EXPECT_EQ(bytes.size(), start.size() + 300);
    }
}

TEST(OutOfMemory, LeavesATextThatGetsNoCharacterAsItWas) {
    // Nothing is foreseen for sequences that begin with a continuation byte, so the text gets its
    // first space, more than fits into it, when the first one is there.
    const std::vector<unsigned char> bytes(40, 0x80);
    for (const Buffer<wchar_t>& start : {Buffer<wchar_t>(), Buffer<wchar_t>(L"")}) {
        Buffer<wchar_t> decoded = start;
        BufferRange<unsigned char> range(bytes.data(), bytes.size());
        EXPECT_EQ(failEachAllocation([&] { buffer::Utf8Decoder::decode(range, decoded); },
                                     [&](std::size_t, bool threw) {
                                         EXPECT_TRUE(threw);
                                         EXPECT_EQ(decoded.isNull(), start.isNull());
                                         EXPECT_TRUE(decoded.empty());
                                         EXPECT_EQ(range.begin(), bytes.data());
                                     }),
                  1u);
        EXPECT_EQ(decoded.size(), 20u);
    }
}

TEST(OutOfMemory, LeavesBytesThatTheEncoderWouldUnshareShared) {
    const std::vector<unsigned char> before(20, 0x2E);
    Buffer<unsigned char> bytes(before.data(), before.size());
    const Buffer<unsigned char> copy = bytes;
    const Buffer<wchar_t> unit(L"x");
    EXPECT_EQ(failEachAllocation([&] { buffer::Utf8Encoder::encode(unit, bytes); },
                                 [&](std::size_t, bool threw) {
                                     EXPECT_TRUE(threw);
                                     EXPECT_EQ(bytes.data(), copy.data());
                                 }),
              1u);
    EXPECT_EQ(bytes.size(), 21u);
    EXPECT_EQ(copy.size(), 20u);
}

// ---- Events

TEST(OutOfMemory, ComesOutInsteadOfTheEventThatIsMade) {
    EXPECT_GT(failEachBalanced([] { const auto event = fullEvent(); }), 5u);
}

TEST(OutOfMemory, LeavesAnEventAsItWasWhenAParameterCannotBeAdded) {
    GenericEvent event = fullEvent();
    const Buffer<wchar_t> key(L"THIRD");
    const Buffer<wchar_t> value(longText);
    for (int i = 0; i != 8; ++i) {
        const GenericEvent before = event;
        failEachAllocation([&] { event.setParam(key, value); },
                           [&](std::size_t, bool threw) {
                               EXPECT_TRUE(threw);
                               EXPECT_TRUE(event.equal(before));
                           });
        EXPECT_EQ(event.params().size(), before.params().size() + 1);
    }
}

TEST(OutOfMemory, LeavesAnEventTheParentItHasWhenAnotherCannotBeSet) {
    GenericEvent event = fullEvent();
    const GenericEvent before = event;
    const GenericEvent cause("Another cause with a long name", sourceFile, 2, 0);
    EXPECT_GT(failEachAllocation([&] { event.setParent(cause); },
                                 [&](std::size_t, bool threw) {
                                     EXPECT_TRUE(threw);
                                     EXPECT_TRUE(event.equal(before));
                                 }),
              0u);
    EXPECT_TRUE(event.parent()->equal(cause));
}

TEST(OutOfMemory, LeavesAnEventAsItWasWhenAnotherCannotBeAssigned) {
    const GenericEvent source = fullEvent();
    GenericEvent target("A name of more than fifteen", sourceFile, 3, 0);
    const GenericEvent before = target;
    EXPECT_GT(failEachAllocation([&] { target = source; },
                                 [&](std::size_t, bool threw) {
                                     EXPECT_TRUE(threw);
                                     EXPECT_TRUE(target.equal(before));
                                 }),
              0u);
    EXPECT_TRUE(target.equal(source));
}

TEST(OutOfMemory, ComesOutOfCloneRaiseAndDump) {
    const TrialError_WithALongName event = fullEvent();
    EXPECT_GT(failEachBalanced([&] { (void)event.clone(); }), 2u);
    EXPECT_GT(failEachBalanced([&] { (void)event.dump(); }), 2u);
    EXPECT_GT(failEachBalanced([&] {
                  try {
                      event.raise();
                  } catch (const TrialError_WithALongName&) {
                      return;
                  }
              }),
              1u);
    EXPECT_TRUE(event.equal(fullEvent()));
}
