// Buffers and events that many threads copy, use and release at once. Worth most under the thread
// sanitizer.
#include "bufcodecs.h"
#include "makeevent.h"
#include "onallthreads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

using buffer::Buffer;
using buffer::BufferError_InvalidEncodingUnit;
using korv::GenericEvent;
using testsupport::onAllThreads;
using testsupport::threadCount;

namespace {

constexpr int rounds = 2000;

const wchar_t longText[] = L"a text of more than fifteen units";

} // namespace

TEST(BufferOnManyThreads, KeepsCountOfItsCopies) {
    const Buffer<wchar_t> text(longText);
    std::atomic<int> failures = 0;
    onAllThreads([&](int) {
        std::vector<Buffer<wchar_t>> copies;
        for (int i = 0; i != rounds; ++i) {
            copies.push_back(text);
            if (copies.back() != text || copies.back().data() != text.data())
                ++failures;
            if (copies.size() == 50)
                copies.clear();
        }
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(text.references(), 1u);
    EXPECT_STREQ(text.c_str(), longText);
}

TEST(BufferOnManyThreads, IsFreedByWhoeverComesLast) {
    for (int i = 0; i != rounds / 10; ++i) {
        std::vector<Buffer<wchar_t>> copies(threadCount, Buffer<wchar_t>(longText));
        std::atomic<int> failures = 0;
        onAllThreads([&](int number) {
            const Buffer<wchar_t> mine = std::move(copies[static_cast<std::size_t>(number)]);
            if (mine != Buffer<wchar_t>(longText))
                ++failures;
        });
        ASSERT_EQ(failures, 0);
    }
}

TEST(BufferOnManyThreads, IsWrittenByEachForItself) {
    const Buffer<wchar_t> text(longText);
    std::atomic<int> failures = 0;
    onAllThreads([&](int number) {
        const wchar_t mark = static_cast<wchar_t>(L'0' + number);
        for (int i = 0; i != rounds; ++i) {
            Buffer<wchar_t> appended = text;
            Buffer<wchar_t> overwritten = text;
            Buffer<wchar_t> shortened = text;
            appended.append(mark);
            overwritten.detach()[0] = mark;
            shortened.resize(4);
            if (appended[text.size()] != mark || overwritten[0] != mark || shortened[0] != L'a')
                ++failures;
        }
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(text.references(), 1u);
    EXPECT_STREQ(text.c_str(), longText);
}

TEST(BufferOnManyThreads, IsWrittenInPlaceByTheLastWhoHoldsIt) {
    // Whoever finds itself alone writes into the block that the others have just read.
    for (int i = 0; i != rounds / 10; ++i) {
        std::vector<Buffer<wchar_t>> copies(threadCount, Buffer<wchar_t>(longText));
        std::atomic<int> failures = 0;
        onAllThreads([&](int number) {
            Buffer<wchar_t> mine = std::move(copies[static_cast<std::size_t>(number)]);
            if (mine[0] != L'a')
                ++failures;
            mine.detach()[0] = static_cast<wchar_t>(L'0' + number);
            if (mine[0] != L'0' + number)
                ++failures;
        });
        ASSERT_EQ(failures, 0);
    }
}

TEST(EventOnManyThreads, IsCopiedClonedRaisedAndShown) {
    const auto event = korv::makeEvent<BufferError_InvalidEncodingUnit>(
        L"tests\\util\\concurrency_test.cpp",
        BufferError_InvalidEncodingUnit(L"src\\somewhere\\deep.cpp", 1), {{L"KEY", longText}});
    const Buffer<wchar_t> shown = event.dump();
    std::atomic<int> failures = 0;
    onAllThreads([&](int) {
        for (int i = 0; i != rounds / 10; ++i) {
            const GenericEvent copy = event;
            const std::unique_ptr<GenericEvent> clone = event.clone();
            if (!copy.equal(event) || !clone->equal(event) || clone->dump() != shown)
                ++failures;
            try {
                clone->raise();
            } catch (BufferError_InvalidEncodingUnit& raised) {
                raised.setParam(L"MORE", copy.file());
                if (raised.equal(event))
                    ++failures;
            }
        }
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(event.params().size(), 1u);
    EXPECT_EQ(event.param(L"KEY")->references(), 1u);
}

TEST(EventOnManyThreads, TravelsAsAnException) {
    std::vector<std::exception_ptr> caught(threadCount);
    onAllThreads([&](int number) {
        try {
            throw korv::makeEvent<BufferError_InvalidEncodingUnit>(
                L"tests\\util\\concurrency_test.cpp",
                {{L"THREAD", static_cast<unsigned>(number)}, {L"KEY", longText}});
        } catch (...) {
            caught[static_cast<std::size_t>(number)] = std::current_exception();
        }
    });
    for (unsigned number = 0; number != threadCount; ++number) {
        try {
            std::rethrow_exception(caught[number]);
        } catch (const GenericEvent& error) {
            EXPECT_EQ(*error.param(L"THREAD"), korv::decimal(number));
            EXPECT_STREQ(error.what(), "BufferError_InvalidEncodingUnit");
        }
    }
}

TEST(CodecsOnManyThreads, ShareTheirConstants) {
    const std::vector<unsigned char> bytes = {0x00, 0xAB, 0xFF, 0x10, 0x32, 0x54, 0x76, 0x98, 0xBA};
    std::atomic<int> failures = 0;
    onAllThreads([&](int) {
        for (int i = 0; i != rounds; ++i) {
            const Buffer<wchar_t> hex = buffer::hexEncode({bytes.data(), bytes.size()});
            if (hex != Buffer<wchar_t>(L"00ABFF1032547698BA") || buffer::toLower(hex)[2] != L'a')
                ++failures;
        }
    });
    EXPECT_EQ(failures, 0);
}
