// Buffers: where their contents lie, when they are shared and when they move, how they compare; and
// ranges, which own nothing.
#include "allocationcount.h"
#include "buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

using buffer::Buffer;
using buffer::BufferRange;
using buffer::TmpBuffer;
using testsupport::AllocationCount;

namespace {

template <class T>
std::vector<T> elements(std::size_t size) {
    std::vector<T> result(size);
    for (std::size_t i = 0; i != size; ++i)
        result[i] = static_cast<T>('!' + i % 90);
    return result;
}

template <class T>
Buffer<T> bufferOf(std::size_t size) {
    const std::vector<T> contents = elements<T>(size);
    return size == 0 ? Buffer<T>(std::size_t{0}) : Buffer<T>(contents.data(), size);
}

template <class T>
TmpBuffer<T> tmpBufferOf(std::size_t size) {
    const std::vector<T> contents = elements<T>(size);
    return size == 0 ? TmpBuffer<T>(std::size_t{0}) : TmpBuffer<T>(contents.data(), size);
}

template <class T>
std::vector<T> contents(const buffer::GenericBuffer<T>& text) {
    return {text.begin(), text.end()};
}

template <class T>
bool isTerminated(const buffer::GenericBuffer<T>& text) {
    return text.data()[text.size()] == T{};
}

template <class T>
std::vector<T> joined(std::vector<T> first, const std::vector<T>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

template <class Value>
Value valueAt(const void* address) {
    Value value;
    std::memcpy(&value, address, sizeof(value));
    return value;
}

/// What stands before the elements of a heap block.
template <class T>
std::uint64_t capacityInHeader(const buffer::GenericBuffer<T>& text) {
    return valueAt<std::uint64_t>(reinterpret_cast<const unsigned char*>(text.data()) - 16);
}
template <class T>
std::uint32_t countInHeader(const buffer::GenericBuffer<T>& text) {
    return valueAt<std::uint32_t>(reinterpret_cast<const unsigned char*>(text.data()) - 8);
}

template <class T>
bool liesInTheObject(const Buffer<T>& text) {
    const auto object = reinterpret_cast<std::uintptr_t>(&text);
    const auto data = reinterpret_cast<std::uintptr_t>(text.data());
    return data >= object && data < object + sizeof(text);
}

template <class T>
class BufferStorage : public testing::Test {};
using ElementTypes = testing::Types<unsigned char, char, wchar_t>;
TYPED_TEST_SUITE(BufferStorage, ElementTypes, );

template <class T>
class BufferCopy : public testing::Test {};
TYPED_TEST_SUITE(BufferCopy, ElementTypes, );

template <class T>
class BufferMove : public testing::Test {};
TYPED_TEST_SUITE(BufferMove, ElementTypes, );

template <class T>
class BufferAppend : public testing::Test {};
TYPED_TEST_SUITE(BufferAppend, ElementTypes, );

template <class T>
class BufferResize : public testing::Test {};
TYPED_TEST_SUITE(BufferResize, ElementTypes, );

template <class T>
class BufferNotShareable : public testing::Test {};
TYPED_TEST_SUITE(BufferNotShareable, ElementTypes, );

template <class T>
class TmpBufferHandOver : public testing::Test {};
TYPED_TEST_SUITE(TmpBufferHandOver, ElementTypes, );

template <class T>
class BufferComparison : public testing::Test {};
TYPED_TEST_SUITE(BufferComparison, ElementTypes, );

static_assert(std::is_nothrow_move_constructible_v<Buffer<unsigned char>>);
static_assert(std::is_nothrow_move_constructible_v<Buffer<char>>);
static_assert(std::is_nothrow_move_constructible_v<Buffer<wchar_t>>);
static_assert(std::is_nothrow_move_assignable_v<Buffer<wchar_t>>);
static_assert(!std::is_copy_constructible_v<TmpBuffer<wchar_t>>);
static_assert(!std::is_copy_assignable_v<TmpBuffer<wchar_t>>);
// A TmpBuffer is given away, never shared with a Buffer.
static_assert(!std::is_constructible_v<Buffer<wchar_t>, const TmpBuffer<wchar_t>&>);
static_assert(!std::is_constructible_v<Buffer<wchar_t>, TmpBuffer<wchar_t>&>);

} // namespace

// ---- Where contents lie

TYPED_TEST(BufferStorage, LiesAsDataThenSizeThenSixteenElements) {
    const auto text = bufferOf<TypeParam>(5);
    const auto* object = reinterpret_cast<const unsigned char*>(&text);
    const std::size_t front = std::is_polymorphic_v<Buffer<TypeParam>> ? sizeof(void*) : 0;

    EXPECT_EQ(valueAt<const TypeParam*>(object + front), text.data());
    EXPECT_EQ(valueAt<std::uint64_t>(object + front + 8), 5u);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(text.data()), object + front + 16);
    EXPECT_EQ(sizeof(text), front + 16 + 16 * sizeof(TypeParam));
}

TYPED_TEST(BufferStorage, IsNullByDefault) {
    const Buffer<TypeParam> text;
    EXPECT_TRUE(text.isNull());
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(text.data(), nullptr);
    EXPECT_EQ(text.size(), 0u);
    EXPECT_EQ(text.begin(), text.end());
}

TYPED_TEST(BufferStorage, OfSizeZeroIsEmptyAndNotNull) {
    const Buffer<TypeParam> text(std::size_t{0});
    EXPECT_FALSE(text.isNull());
    EXPECT_TRUE(text.empty());
    ASSERT_NE(text.data(), nullptr);
    EXPECT_EQ(*text.data(), TypeParam{});
}

TYPED_TEST(BufferStorage, OfNoElementsAtAnAddressIsEmptyAndOfNoneAtNullIsNull) {
    const TypeParam element{};
    EXPECT_FALSE(Buffer<TypeParam>(&element, 0).isNull());
    EXPECT_TRUE(Buffer<TypeParam>(static_cast<const TypeParam*>(nullptr), 0).isNull());
}

TYPED_TEST(BufferStorage, GivesAZeroTerminatedStringEvenIfNull) {
    EXPECT_EQ(*Buffer<TypeParam>().c_str(), TypeParam{});
    const auto text = bufferOf<TypeParam>(3);
    EXPECT_EQ(text.c_str(), text.data());
    EXPECT_EQ(text.c_str()[3], TypeParam{});
}

TYPED_TEST(BufferStorage, OfAGivenSizeIsTerminated) {
    for (const std::size_t size : {0u, 1u, 14u, 15u, 16u, 17u, 300u}) {
        const Buffer<TypeParam> text(size);
        EXPECT_EQ(text.size(), size);
        EXPECT_TRUE(isTerminated(text)) << size;
    }
}

TYPED_TEST(BufferStorage, CopiesTheElementsItIsGiven) {
    for (const std::size_t size : {1u, 15u, 16u, 300u}) {
        const auto given = elements<TypeParam>(size);
        const Buffer<TypeParam> text(given.data(), given.size());
        EXPECT_EQ(contents(text), given);
        EXPECT_TRUE(isTerminated(text)) << size;
    }
}

TYPED_TEST(BufferStorage, KeepsZerosAmongTheElements) {
    const TypeParam given[] = {'a', 0, 'b', 0};
    const Buffer<TypeParam> text(given, 4);
    EXPECT_EQ(contents(text), std::vector<TypeParam>(given, given + 4));
}

TYPED_TEST(BufferStorage, KeepsFifteenElementsInTheObjectWithoutAllocating) {
    const auto given = elements<TypeParam>(15);
    const AllocationCount count;
    const Buffer<TypeParam> text(given.data(), given.size());
    EXPECT_EQ(count.allocations(), 0u);
    EXPECT_TRUE(liesInTheObject(text));
    EXPECT_EQ(text.capacity(), 15u);
    EXPECT_EQ(text.references(), 0u);
}

TYPED_TEST(BufferStorage, KeepsSixteenElementsInOneHeapBlockWithACountOfOne) {
    const auto given = elements<TypeParam>(16);
    const AllocationCount count;
    const Buffer<TypeParam> text(given.data(), given.size());
    EXPECT_EQ(count.allocations(), 1u);
    EXPECT_FALSE(liesInTheObject(text));
    EXPECT_EQ(text.capacity(), 40u);
    EXPECT_EQ(text.references(), 1u);
}

TYPED_TEST(BufferStorage, GivesANewBlockHalfAsMuchAgainAndSixteenMore) {
    for (const std::size_t size : {16u, 17u, 18u, 99u, 100u, 1001u}) {
        EXPECT_EQ(Buffer<TypeParam>(size).capacity(), size + size / 2 + 16);
        EXPECT_EQ(bufferOf<TypeParam>(size).capacity(), size + size / 2 + 16);
    }
}

TYPED_TEST(BufferStorage, BeginsItsBlockWithCapacityAndCount) {
    const auto text = bufferOf<TypeParam>(20);
    const auto copy = text;
    EXPECT_EQ(capacityInHeader(text), 46u);
    EXPECT_EQ(countInHeader(text), 2u);
}

TYPED_TEST(BufferStorage, AlignsWhatABlockHoldsForAnyStructure) {
    const Buffer<TypeParam> text(64);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text.data()) % 16, 0u);
}

TYPED_TEST(BufferStorage, FreesItsBlockWithTheLastBuffer) {
    const AllocationCount count;
    {
        const auto text = Buffer<TypeParam>(100);
        const auto second = text;
        const auto third = second;
    }
    EXPECT_EQ(count.allocations(), 1u);
    EXPECT_EQ(count.releases(), 1u);
}

TYPED_TEST(BufferStorage, RefusesSizesThatNoMemoryHolds) {
    const std::size_t most = std::numeric_limits<std::size_t>::max();
    for (const std::size_t size : {most, most / 2, most / sizeof(TypeParam)}) {
        EXPECT_THROW(Buffer<TypeParam>{size}, std::bad_alloc);
        auto text = bufferOf<TypeParam>(3);
        EXPECT_THROW(text.resize(size), std::bad_alloc);
        EXPECT_EQ(text, bufferOf<TypeParam>(3));
    }
    auto text = bufferOf<TypeParam>(3);
    EXPECT_THROW(text.append(text.data(), most - 2), std::bad_alloc);
    EXPECT_EQ(text, bufferOf<TypeParam>(3));
}

// ---- Text by pointer

TEST(BufferText, ScansForTheTerminator) {
    EXPECT_EQ(Buffer<wchar_t>(L"MY").size(), 2u);
    EXPECT_EQ(Buffer<wchar_t>(L"fifteen letters").size(), 15u);
    EXPECT_EQ(Buffer<wchar_t>(L"sixteen letters!").size(), 16u);
    EXPECT_STREQ(Buffer<wchar_t>(L"sixteen letters!").c_str(), L"sixteen letters!");
    EXPECT_STREQ(Buffer<char>("sixteen letters!").c_str(), "sixteen letters!");
    EXPECT_EQ(Buffer<wchar_t>(L"up to\0here").size(), 5u);
}

TEST(BufferText, IsNullForANullPointer) {
    EXPECT_TRUE(Buffer<wchar_t>(static_cast<const wchar_t*>(nullptr)).isNull());
    EXPECT_TRUE(Buffer<char>(static_cast<const char*>(nullptr)).isNull());
}

TEST(BufferText, IsEmptyAndNotNullForAnEmptyString) {
    EXPECT_FALSE(Buffer<wchar_t>(L"").isNull());
    EXPECT_TRUE(Buffer<wchar_t>(L"").empty());
    EXPECT_FALSE(Buffer<char>("").isNull());
}

TEST(BufferText, ThatIsWideIsPolymorphicAndFreedThroughItsBase) {
    const AllocationCount count;
    {
        std::unique_ptr<buffer::BufferRoot<wchar_t>> text =
            std::make_unique<Buffer<wchar_t>>(L"long enough for a block of its own");
        const buffer::BufferRoot<wchar_t>& base = *text;
        EXPECT_TRUE(typeid(base) == typeid(Buffer<wchar_t>));
    }
    EXPECT_EQ(count.allocations(), 2u);
    EXPECT_EQ(count.releases(), 2u);
}

// ---- Copies

TYPED_TEST(BufferCopy, OfSixteenElementsSharesTheBlock) {
    const auto text = bufferOf<TypeParam>(16);
    const AllocationCount count;
    {
        const auto copy = text;
        EXPECT_EQ(copy.data(), text.data());
        EXPECT_EQ(copy.size(), 16u);
        EXPECT_EQ(text.references(), 2u);
        EXPECT_EQ(copy.references(), 2u);
    }
    EXPECT_EQ(text.references(), 1u);
    EXPECT_EQ(count.allocations(), 0u);
    EXPECT_EQ(count.releases(), 0u);
}

TYPED_TEST(BufferCopy, OfFifteenElementsDoesNotAllocate) {
    const auto text = bufferOf<TypeParam>(15);
    const AllocationCount count;
    const auto copy = text;
    EXPECT_EQ(count.allocations(), 0u);
    EXPECT_NE(copy.data(), text.data());
    EXPECT_EQ(contents(copy), elements<TypeParam>(15));
    EXPECT_TRUE(isTerminated(copy));
}

TYPED_TEST(BufferCopy, KeepsNullAndEmptyApart) {
    const Buffer<TypeParam> null;
    const Buffer<TypeParam> empty(std::size_t{0});
    const auto nullCopy = null;
    const auto emptyCopy = empty;
    EXPECT_TRUE(nullCopy.isNull());
    EXPECT_FALSE(emptyCopy.isNull());

    auto assigned = bufferOf<TypeParam>(20);
    assigned = empty;
    EXPECT_FALSE(assigned.isNull());
    assigned = null;
    EXPECT_TRUE(assigned.isNull());
    EXPECT_EQ(assigned.size(), 0u);
}

TYPED_TEST(BufferCopy, WritesTheTerminatorThatItsBlockLacks) {
    auto text = bufferOf<TypeParam>(16);
    text.data()[16] = TypeParam{'x'};
    const auto copy = text;
    EXPECT_TRUE(isTerminated(copy));
}

TYPED_TEST(BufferCopy, AssignedReleasesWhatWasThere) {
    const auto text = bufferOf<TypeParam>(30);
    auto other = bufferOf<TypeParam>(50);
    const AllocationCount count;
    other = text;
    EXPECT_EQ(count.allocations(), 0u);
    EXPECT_EQ(count.releases(), 1u);
    EXPECT_EQ(other.data(), text.data());
    EXPECT_EQ(text.references(), 2u);
}

TYPED_TEST(BufferCopy, AssignedToItselfStaysAsItIs) {
    for (const std::size_t size : {0u, 15u, 16u}) {
        auto text = bufferOf<TypeParam>(size);
        const auto& same = text;
        text = same;
        EXPECT_EQ(contents(text), elements<TypeParam>(size));
        EXPECT_EQ(text.references(), size > 15 ? 1u : 0u);
        EXPECT_TRUE(isTerminated(text));
    }
}

TYPED_TEST(BufferCopy, AssignedFromABufferOfTheSameBlockKeepsTheCount) {
    const auto text = bufferOf<TypeParam>(30);
    auto copy = text;
    copy = text;
    EXPECT_EQ(text.references(), 2u);
}

// ---- Moves

TYPED_TEST(BufferMove, TakesTheBlockAndLeavesNull) {
    auto text = bufferOf<TypeParam>(40);
    const auto* block = text.data();
    const AllocationCount count;
    const Buffer<TypeParam> moved(std::move(text));
    EXPECT_EQ(count.allocations(), 0u);
    EXPECT_EQ(moved.data(), block);
    EXPECT_EQ(moved.references(), 1u);
    EXPECT_TRUE(text.isNull());
    EXPECT_EQ(text.size(), 0u);
}

TYPED_TEST(BufferMove, TakesShortContentsIntoItsOwnObject) {
    auto text = bufferOf<TypeParam>(15);
    const Buffer<TypeParam> moved(std::move(text));
    EXPECT_TRUE(liesInTheObject(moved));
    EXPECT_EQ(contents(moved), elements<TypeParam>(15));
    EXPECT_TRUE(isTerminated(moved));
    EXPECT_TRUE(text.isNull());
}

TYPED_TEST(BufferMove, KeepsNullAndEmptyApart) {
    Buffer<TypeParam> null;
    Buffer<TypeParam> empty(std::size_t{0});
    EXPECT_TRUE(Buffer<TypeParam>(std::move(null)).isNull());
    EXPECT_FALSE(Buffer<TypeParam>(std::move(empty)).isNull());
}

TYPED_TEST(BufferMove, AssignedReleasesWhatWasThere) {
    auto text = bufferOf<TypeParam>(30);
    auto other = bufferOf<TypeParam>(50);
    const AllocationCount count;
    other = std::move(text);
    EXPECT_EQ(count.releases(), 1u);
    EXPECT_EQ(contents(other), elements<TypeParam>(30));
    EXPECT_TRUE(text.isNull());
}

TYPED_TEST(BufferMove, ToItselfKeepsTheContents) {
    for (const std::size_t size : {15u, 16u}) {
        auto text = bufferOf<TypeParam>(size);
        auto& same = text;
        text = std::move(same);
        EXPECT_EQ(contents(text), elements<TypeParam>(size));
    }
}

TYPED_TEST(BufferMove, LeavesABufferThatCanBeUsedAgain) {
    auto text = bufferOf<TypeParam>(40);
    const Buffer<TypeParam> moved(std::move(text));
    text.append(TypeParam{'x'});
    EXPECT_EQ(contents(text), std::vector<TypeParam>{'x'});
    EXPECT_EQ(contents(moved), elements<TypeParam>(40));
}

// ---- Appending

TYPED_TEST(BufferAppend, StaysInTheObjectUpToFifteenElements) {
    auto text = bufferOf<TypeParam>(10);
    const AllocationCount count;
    text.append(elements<TypeParam>(5).data(), 5);
    EXPECT_TRUE(liesInTheObject(text));
    EXPECT_TRUE(isTerminated(text));
}

TYPED_TEST(BufferAppend, MovesToABlockWithTheSixteenthElement) {
    auto text = bufferOf<TypeParam>(15);
    text.append(TypeParam{'x'});
    EXPECT_FALSE(liesInTheObject(text));
    EXPECT_EQ(text.capacity(), 40u);
    EXPECT_EQ(text.references(), 1u);
    EXPECT_EQ(contents(text), joined(elements<TypeParam>(15), {TypeParam{'x'}}));
    EXPECT_TRUE(isTerminated(text));
}

TYPED_TEST(BufferAppend, FillsItsBlockToTheCapacityBeforeItTakesANewOne) {
    auto text = bufferOf<TypeParam>(16);
    const auto* block = text.data();
    const auto more = elements<TypeParam>(24);
    text.append(more.data(), more.size());
    EXPECT_EQ(text.data(), block);
    EXPECT_EQ(text.size(), text.capacity());
    EXPECT_TRUE(isTerminated(text));

    text.append(TypeParam{'x'});
    EXPECT_NE(text.data(), block);
    EXPECT_EQ(text.capacity(), 41u + 20u + 16u);
    EXPECT_EQ(contents(text), joined(joined(elements<TypeParam>(16), more), {TypeParam{'x'}}));
}

TYPED_TEST(BufferAppend, OneByOneAllocatesSeldom) {
    std::vector<TypeParam> expected(1000, TypeParam{'x'});
    Buffer<TypeParam> text;
    const AllocationCount count;
    for (std::size_t i = 0; i != 1000; ++i) {
        text.append(TypeParam{'x'});
        ASSERT_TRUE(isTerminated(text)) << i;
    }
    // Blocks for 16, 41, 78, 134, 218, 344, 533 and 816 elements.
    EXPECT_EQ(count.allocations(), 8u);
    EXPECT_EQ(count.releases(), 7u);
    EXPECT_EQ(contents(text), expected);
}

TYPED_TEST(BufferAppend, MakesANullBufferHoldTheElements) {
    Buffer<TypeParam> text;
    text.append(bufferOf<TypeParam>(3));
    EXPECT_EQ(contents(text), elements<TypeParam>(3));
    EXPECT_TRUE(isTerminated(text));
}

TYPED_TEST(BufferAppend, OfANullBufferChangesNoContents) {
    for (const std::size_t size : {0u, 15u, 16u}) {
        auto text = bufferOf<TypeParam>(size);
        text.append(Buffer<TypeParam>());
        EXPECT_EQ(contents(text), elements<TypeParam>(size));
        EXPECT_TRUE(isTerminated(text));
    }
}

TYPED_TEST(BufferAppend, TakesItsOwnContents) {
    // Within the object, into a first block, within a block, into a new block.
    for (const std::size_t size : {7u, 8u, 15u, 16u, 20u, 100u}) {
        auto text = bufferOf<TypeParam>(size);
        text.append(text);
        EXPECT_EQ(contents(text), joined(elements<TypeParam>(size), elements<TypeParam>(size)));
        EXPECT_TRUE(isTerminated(text));
    }
    auto roomy = bufferOf<TypeParam>(100);
    roomy.resize(30);
    const auto* block = roomy.data();
    roomy.append(roomy);
    EXPECT_EQ(roomy.data(), block);
    EXPECT_EQ(contents(roomy), joined(elements<TypeParam>(30), elements<TypeParam>(30)));
}

TYPED_TEST(BufferAppend, TakesPartOfItsOwnContents) {
    for (const std::size_t size : {10u, 15u, 16u, 100u}) {
        auto text = bufferOf<TypeParam>(size);
        const auto whole = elements<TypeParam>(size);
        text.append(text.data() + 2, size - 2);
        EXPECT_EQ(contents(text), joined(whole, {whole.begin() + 2, whole.end()}));
        text.append(text[1]);
        EXPECT_EQ(text[text.size() - 1], whole[1]);
    }
}

TYPED_TEST(BufferAppend, TakesItsOwnTerminator) {
    const std::vector<TypeParam> zero{TypeParam{}};
    // Within the object, into a first block, within a block, into a new block.
    for (const std::size_t size : {0u, 7u, 8u, 15u, 16u, 39u, 40u, 100u}) {
        const auto whole = elements<TypeParam>(size);
        auto text = bufferOf<TypeParam>(size);
        text.append(text.end(), 1);
        EXPECT_EQ(contents(text), joined(whole, zero)) << size;
        EXPECT_TRUE(isTerminated(text));

        text = bufferOf<TypeParam>(size);
        text.append(text.begin(), size + 1);
        EXPECT_EQ(contents(text), joined(joined(whole, whole), zero)) << size;
        EXPECT_TRUE(isTerminated(text));

        text = bufferOf<TypeParam>(size);
        text.append(text.end(), 0);
        EXPECT_EQ(contents(text), whole) << size;
    }
    auto full = bufferOf<TypeParam>(16);
    while (full.size() != full.capacity())
        full.append(TypeParam{'x'});
    const auto before = contents(full);
    full.append(full.end(), 1);
    EXPECT_EQ(contents(full), joined(before, zero));
    EXPECT_TRUE(isTerminated(full));

    auto shared = bufferOf<TypeParam>(20);
    const auto copy = shared;
    shared.append(shared.end(), 1);
    EXPECT_EQ(contents(shared), joined(elements<TypeParam>(20), zero));
    EXPECT_EQ(contents(copy), elements<TypeParam>(20));
}

TYPED_TEST(BufferAppend, ToASharedBlockLeavesTheOthersAlone) {
    auto text = bufferOf<TypeParam>(20);
    const auto copy = text;
    text.append(TypeParam{'x'});
    EXPECT_EQ(contents(copy), elements<TypeParam>(20));
    EXPECT_TRUE(isTerminated(copy));
    EXPECT_EQ(copy.references(), 1u);
    EXPECT_EQ(text.references(), 1u);
    EXPECT_EQ(contents(text), joined(elements<TypeParam>(20), {TypeParam{'x'}}));
}

TYPED_TEST(BufferAppend, OfItselfToASharedBlockLeavesTheOthersAlone) {
    auto text = bufferOf<TypeParam>(20);
    const auto copy = text;
    text.append(copy);
    EXPECT_EQ(contents(text), joined(elements<TypeParam>(20), elements<TypeParam>(20)));
    EXPECT_EQ(contents(copy), elements<TypeParam>(20));
}

// ---- Resizing, resetting and detaching

TYPED_TEST(BufferResize, IsNullAfterAReset) {
    for (const std::size_t size : {0u, 7u, 20u}) {
        auto text = bufferOf<TypeParam>(size);
        const auto copy = text;
        text.reset();
        EXPECT_TRUE(text.isNull());
        EXPECT_EQ(text.size(), 0u);
        EXPECT_EQ(contents(copy), elements<TypeParam>(size));
        EXPECT_LE(copy.references(), 1u);
        text.append(TypeParam{'x'});
        EXPECT_EQ(contents(text), std::vector<TypeParam>{'x'});
    }
}

TYPED_TEST(BufferResize, KeepsWhatWasThereAndTerminates) {
    const std::size_t sizes[] = {0, 1, 14, 15, 16, 17, 40, 41, 100};
    for (const std::size_t from : sizes)
        for (const std::size_t to : sizes) {
            auto text = bufferOf<TypeParam>(from);
            text.resize(to);
            ASSERT_EQ(text.size(), to);
            ASSERT_TRUE(isTerminated(text)) << from << " to " << to;
            ASSERT_GE(text.capacity(), to);
            ASSERT_EQ(liesInTheObject(text), to <= 15) << from << " to " << to;
            const auto kept = elements<TypeParam>(std::min(from, to));
            ASSERT_TRUE(std::equal(kept.begin(), kept.end(), text.begin())) << from << ' ' << to;
        }
}

TYPED_TEST(BufferResize, ToFifteenMovesIntoTheObjectAndFreesTheBlock) {
    auto text = bufferOf<TypeParam>(16);
    const AllocationCount count;
    text.resize(15);
    EXPECT_TRUE(liesInTheObject(text));
    EXPECT_EQ(count.allocations(), 0u);
    EXPECT_EQ(count.releases(), 1u);
}

TYPED_TEST(BufferResize, ToSixteenStaysInTheBlock) {
    auto text = bufferOf<TypeParam>(40);
    const auto* block = text.data();
    text.resize(16);
    EXPECT_EQ(text.data(), block);
    EXPECT_EQ(contents(text), elements<TypeParam>(16));
}

TYPED_TEST(BufferResize, MakesANullBufferEmpty) {
    Buffer<TypeParam> text;
    text.resize(0);
    EXPECT_FALSE(text.isNull());
    EXPECT_TRUE(isTerminated(text));
}

TYPED_TEST(BufferResize, OfASharedBlockLeavesTheOthersAlone) {
    for (const std::size_t size : {0u, 15u, 16u, 20u, 21u, 100u}) {
        auto text = bufferOf<TypeParam>(20);
        const auto copy = text;
        text.resize(size);
        EXPECT_NE(text.data(), copy.data()) << size;
        EXPECT_EQ(copy.references(), 1u) << size;
        EXPECT_EQ(contents(copy), elements<TypeParam>(20)) << size;
        EXPECT_TRUE(isTerminated(copy)) << size;
    }
}

TYPED_TEST(BufferResize, IsNotNeededToReadAndDetachGivesABlockOfItsOwn) {
    auto text = bufferOf<TypeParam>(20);
    const auto copy = text;
    EXPECT_EQ(text.data(), copy.data());

    text.detach()[0] = TypeParam{'#'};
    EXPECT_EQ(text[0], TypeParam{'#'});
    EXPECT_EQ(contents(copy), elements<TypeParam>(20));
    EXPECT_EQ(copy.references(), 1u);
    EXPECT_EQ(text.references(), 1u);
    EXPECT_EQ(text.size(), 20u);
    EXPECT_TRUE(isTerminated(text));
}

TYPED_TEST(BufferResize, DetachCostsNothingWhereNobodyShares) {
    for (const std::size_t size : {0u, 15u, 16u}) {
        auto text = bufferOf<TypeParam>(size);
        const AllocationCount count;
        const auto* before = text.data();
        EXPECT_EQ(text.detach(), before);
        EXPECT_EQ(count.allocations(), 0u);
    }
    EXPECT_EQ(Buffer<TypeParam>().detach(), nullptr);
}

// ---- Blocks that must not be shared

TYPED_TEST(BufferNotShareable, SaysSoByACapacityOfFifteen) {
    auto text = bufferOf<TypeParam>(30);
    text.markNotShareable();
    EXPECT_EQ(capacityInHeader(text), 15u);
    EXPECT_EQ(contents(text), elements<TypeParam>(30));
}

TYPED_TEST(BufferNotShareable, IsCopiedElementByElementByTheGrowthRule) {
    auto text = bufferOf<TypeParam>(30);
    text.markNotShareable();

    const auto copy = text;
    EXPECT_NE(copy.data(), text.data());
    EXPECT_EQ(contents(copy), elements<TypeParam>(30));
    EXPECT_TRUE(isTerminated(copy));
    EXPECT_EQ(copy.capacity(), 30u + 15u + 16u);
    EXPECT_EQ(countInHeader(text), 1u);
    EXPECT_EQ(countInHeader(copy), 1u);

    auto assigned = bufferOf<TypeParam>(2);
    assigned = text;
    EXPECT_NE(assigned.data(), text.data());
    EXPECT_EQ(contents(assigned), elements<TypeParam>(30));

    const auto shared = copy;
    EXPECT_EQ(shared.data(), copy.data());
}

TYPED_TEST(BufferNotShareable, MovesAsAnyOther) {
    auto text = bufferOf<TypeParam>(30);
    text.markNotShareable();
    const auto* block = text.data();
    const Buffer<TypeParam> moved(std::move(text));
    EXPECT_EQ(moved.data(), block);
    EXPECT_EQ(capacityInHeader(moved), 15u);
}

TYPED_TEST(BufferNotShareable, CanBeWrittenAndResized) {
    auto text = bufferOf<TypeParam>(30);
    text.markNotShareable();
    text.append(TypeParam{'x'});
    EXPECT_EQ(contents(text), joined(elements<TypeParam>(30), {TypeParam{'x'}}));
    text.markNotShareable();
    text.resize(16);
    EXPECT_EQ(contents(text), elements<TypeParam>(16));
    text.markNotShareable();
    text.resize(15);
    EXPECT_EQ(contents(text), elements<TypeParam>(15));
}

TYPED_TEST(BufferNotShareable, MeansNothingForContentsInTheObject) {
    auto text = bufferOf<TypeParam>(15);
    text.markNotShareable();
    EXPECT_EQ(contents(text), elements<TypeParam>(15));
    Buffer<TypeParam> null;
    null.markNotShareable();
    EXPECT_TRUE(null.isNull());
}

// ---- From TmpBuffer to Buffer

TYPED_TEST(TmpBufferHandOver, GivesTheBlockAwayWithoutCopying) {
    auto temporary = tmpBufferOf<TypeParam>(30);
    const auto* block = temporary.data();
    const AllocationCount count;
    const Buffer<TypeParam> text(std::move(temporary));
    EXPECT_EQ(text.data(), block);
    EXPECT_EQ(text.references(), 1u);
    EXPECT_EQ(text.size(), 30u);
    EXPECT_EQ(count.allocations(), 0u);
    EXPECT_TRUE(temporary.isNull());
}

TYPED_TEST(TmpBufferHandOver, SetsTheCountToOne) {
    auto temporary = tmpBufferOf<TypeParam>(30);
    const std::uint32_t seven = 7;
    std::memcpy(reinterpret_cast<unsigned char*>(temporary.data()) - 8, &seven, sizeof(seven));
    const Buffer<TypeParam> text(std::move(temporary));
    EXPECT_EQ(countInHeader(text), 1u);
}

TYPED_TEST(TmpBufferHandOver, CopiesABlockThatMustNotBeShared) {
    auto temporary = tmpBufferOf<TypeParam>(30);
    temporary.markNotShareable();
    const auto* block = temporary.data();
    const Buffer<TypeParam> text(std::move(temporary));
    EXPECT_NE(text.data(), block);
    EXPECT_EQ(contents(text), elements<TypeParam>(30));
    EXPECT_TRUE(isTerminated(text));
    EXPECT_EQ(text.capacity(), 30u + 15u + 16u);
    EXPECT_EQ(text.references(), 1u);
}

TYPED_TEST(TmpBufferHandOver, KeepsShortContentsNullAndEmpty) {
    const Buffer<TypeParam> text(tmpBufferOf<TypeParam>(15));
    EXPECT_TRUE(liesInTheObject(text));
    EXPECT_EQ(contents(text), elements<TypeParam>(15));
    EXPECT_TRUE(Buffer<TypeParam>(TmpBuffer<TypeParam>()).isNull());
    EXPECT_FALSE(Buffer<TypeParam>(TmpBuffer<TypeParam>(std::size_t{0})).isNull());
}

TYPED_TEST(TmpBufferHandOver, ByAssignmentReleasesWhatWasThere) {
    auto text = bufferOf<TypeParam>(50);
    auto temporary = tmpBufferOf<TypeParam>(30);
    const auto* block = temporary.data();
    const AllocationCount count;
    text = std::move(temporary);
    EXPECT_EQ(text.data(), block);
    EXPECT_EQ(count.releases(), 1u);
}

TYPED_TEST(TmpBufferHandOver, FollowsTheStorageRulesBefore) {
    TmpBuffer<TypeParam> temporary;
    EXPECT_TRUE(temporary.isNull());
    temporary.append(elements<TypeParam>(15).data(), 15);
    EXPECT_EQ(temporary.references(), 0u);
    temporary.append(TypeParam{'x'});
    EXPECT_EQ(temporary.capacity(), 40u);
    EXPECT_EQ(temporary.references(), 1u);
    TmpBuffer<TypeParam> moved(std::move(temporary));
    EXPECT_EQ(contents(moved), joined(elements<TypeParam>(15), {TypeParam{'x'}}));
}

// ---- Comparing

TYPED_TEST(BufferComparison, IsAboutContentsOnly) {
    auto longer = bufferOf<TypeParam>(40);
    longer.resize(16);
    EXPECT_EQ(longer, bufferOf<TypeParam>(16));
    EXPECT_NE(bufferOf<TypeParam>(16), bufferOf<TypeParam>(17));
    EXPECT_NE(bufferOf<TypeParam>(0), bufferOf<TypeParam>(1));
    auto changed = bufferOf<TypeParam>(40);
    changed.data()[39] = TypeParam{'~'};
    EXPECT_NE(changed, bufferOf<TypeParam>(40));
}

TYPED_TEST(BufferComparison, DoesNotTellNullFromEmpty) {
    const Buffer<TypeParam> null;
    const Buffer<TypeParam> empty(std::size_t{0});
    EXPECT_EQ(null, empty);
    EXPECT_FALSE(null < empty);
    EXPECT_FALSE(empty < null);
    EXPECT_LT(null, bufferOf<TypeParam>(1));
}

TYPED_TEST(BufferComparison, LooksBehindZeros) {
    const TypeParam first[] = {'a', 0, 'b'};
    const TypeParam second[] = {'a', 0, 'c'};
    EXPECT_LT(Buffer<TypeParam>(first, 3), Buffer<TypeParam>(second, 3));
    EXPECT_NE(Buffer<TypeParam>(first, 3), Buffer<TypeParam>(second, 3));
}

TYPED_TEST(BufferComparison, TakesElementsAsUnsigned) {
    const TypeParam low = 0x7F;
    const TypeParam high = static_cast<TypeParam>(0x80);
    EXPECT_LT(Buffer<TypeParam>(&low, 1), Buffer<TypeParam>(&high, 1));
    EXPECT_GT(Buffer<TypeParam>(&high, 1), Buffer<TypeParam>(&low, 1));
}

TEST(BufferOrdering, PutsAPrefixBeforeTheLongerBytes) {
    const unsigned char bytes[] = {1, 2, 3};
    const Buffer<unsigned char> shorter(bytes, 2);
    const Buffer<unsigned char> longer(bytes, 3);
    EXPECT_EQ(shorter <=> longer, std::strong_ordering::less);
    EXPECT_EQ(longer <=> shorter, std::strong_ordering::greater);
    EXPECT_EQ(longer <=> Buffer<unsigned char>(bytes, 3), std::strong_ordering::equal);
}

TEST(BufferOrdering, PutsAPrefixBeforeTheLongerText) {
    const std::less<Buffer<wchar_t>> less;
    EXPECT_TRUE(less(L"AB", L"ABC"));
    EXPECT_TRUE(less(L"ABC", L"ABD"));
    EXPECT_FALSE(less(L"ABC", L"AB"));
    EXPECT_FALSE(less(L"ABD", L"ABC"));
    EXPECT_FALSE(less(L"ABC", L"ABC"));
    EXPECT_TRUE(less(L"", L"A"));
    EXPECT_TRUE(less(L"B", L"b"));
    EXPECT_TRUE(less(L"AB", L"B"));
}

TEST(BufferOrdering, IsByCodeUnitForAllOfSixteenBits) {
    // In ascending order; a comparison by bytes or by signed units would sort them otherwise.
    const wchar_t units[] = {0x0000, 0x0001, 0x00FF, 0x0100, 0x7FFF,
                             0x8000, 0xD800, 0xDFFF, 0xFF00, 0xFFFF};
    for (std::size_t i = 0; i != std::size(units); ++i)
        for (std::size_t j = 0; j != std::size(units); ++j) {
            const Buffer<wchar_t> a(&units[i], 1);
            const Buffer<wchar_t> b(&units[j], 1);
            EXPECT_EQ(a < b, i < j) << i << ' ' << j;
            EXPECT_EQ(a <=> b, i <=> j) << i << ' ' << j;
        }
}

TEST(BufferOrdering, AgreesWithThatOfStrings) {
    std::vector<std::u16string> strings;
    const char16_t alphabet[] = {0x0041, 0x0100, 0x8000};
    for (std::size_t n = 0; n != 3 * 3 * 3 * 3; ++n)
        for (std::size_t length = 0; length <= 4; ++length) {
            std::u16string text;
            for (std::size_t i = 0, rest = n; i != length; ++i, rest /= 3)
                text += alphabet[rest % 3];
            // Beyond the object too.
            strings.push_back(std::u16string(n % 2 == 0 ? 0 : 14, u'A') + text);
        }
    const auto wide = [](const std::u16string& text) {
        const std::vector<wchar_t> units(text.begin(), text.end());
        return units.empty() ? Buffer<wchar_t>(L"") : Buffer<wchar_t>(units.data(), units.size());
    };
    for (const auto& a : strings)
        for (const auto& b : strings)
            ASSERT_EQ(wide(a) <=> wide(b), a <=> b);
}

TEST(BufferOrdering, MakesContainerNamesKeysOfAMap) {
    std::map<Buffer<wchar_t>, int> map;
    map[L"CKAIDHEX:00ABFF"] = 1;
    map[L"CKAIDHEX:00ABFF00"] = 2;
    map[L"CKAIDHEX:"] = 3;
    map[L"CKAIDHEX:00ABFF"] = 4;
    ASSERT_EQ(map.size(), 3u);
    EXPECT_EQ(map.at(L"CKAIDHEX:00ABFF"), 4);
    std::vector<int> values;
    for (const auto& [name, value] : map)
        values.push_back(value);
    EXPECT_EQ(values, (std::vector<int>{3, 4, 2}));
    EXPECT_EQ(map.count(L"ckaidhex:00ABFF"), 0u);
}

// ---- Ranges

TEST(BufferRangeOfBytes, IsConsumedFromTheFront) {
    const unsigned char bytes[] = {1, 2, 3};
    BufferRange<unsigned char> range(bytes, std::size_t{3});
    EXPECT_EQ(range.size(), 3u);
    range.advance(2);
    EXPECT_EQ(range.begin(), bytes + 2);
    EXPECT_EQ(range.end(), bytes + 3);
    EXPECT_EQ(range[0], 3);
    EXPECT_FALSE(range.empty());
    range.advance(1);
    EXPECT_TRUE(range.empty());
}

TEST(BufferRangeOfBytes, ViewsABufferWithoutSharingIt) {
    const auto bytes = bufferOf<unsigned char>(20);
    const BufferRange<unsigned char> range(bytes);
    EXPECT_EQ(range.begin(), bytes.data());
    EXPECT_EQ(range.size(), 20u);
    EXPECT_EQ(bytes.references(), 1u);
    EXPECT_TRUE(BufferRange<unsigned char>(Buffer<unsigned char>()).empty());
    EXPECT_TRUE(BufferRange<unsigned char>().empty());
}
