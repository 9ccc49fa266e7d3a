// Attribute templates.
#include "ckattributes.h"
#include "expectcryptokierror.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

namespace {

using faketoken::cryptokiErrorOf;
using faketoken::expectCryptokiError;
using pkcs11::CkAttributes;
using pkcs11::CkUlong;
namespace cka = pkcs11::cka;

using Range = buffer::BufferRange<unsigned char>;

std::vector<unsigned char> bytesOf(Range range) {
    return {range.begin(), range.end()};
}

TEST(CkAttributes, KeepsTheOrderInWhichTypesWereAdded) {
    CkAttributes attributes;
    attributes.add(cka::value);
    attributes.add(cka::id);
    attributes.add(cka::label);
    ASSERT_EQ(attributes.entries().size(), 3u);
    EXPECT_EQ(attributes.entries()[0].type, cka::value);
    EXPECT_EQ(attributes.entries()[1].type, cka::id);
    EXPECT_EQ(attributes.entries()[2].type, cka::label);
}

TEST(CkAttributes, StartsAnEntryWithoutValueAndWithLengthZero) {
    CkAttributes attributes;
    attributes.add(cka::id);
    EXPECT_EQ(attributes.entries()[0].value, nullptr);
    EXPECT_EQ(attributes.entries()[0].length, 0u);
}

TEST(CkAttributes, ThrowsTemplateInconsistentForATypeThatIsAlreadyThere) {
    CkAttributes attributes;
    attributes.add(cka::id);
    attributes.add(cka::label);
    expectCryptokiError(L"209", [&] { attributes.add(cka::id); });
    expectCryptokiError(L"209", [&] { attributes.addNumber(cka::label, 1); });
    expectCryptokiError(L"209", [&] { attributes.addBool(cka::id, true); });
    EXPECT_EQ(attributes.entries().size(), 2u);
}

TEST(CkAttributes, ThrowsAttributeTypeInvalidForATypeThatIsNotThere) {
    CkAttributes attributes;
    attributes.add(cka::id);
    expectCryptokiError(L"18", [&] { attributes.value(cka::label); });
    expectCryptokiError(L"18", [&] { attributes.setValue(cka::label, Range()); });
}

TEST(CkAttributes, HoldsABooleanAsOneOctet) {
    CkAttributes attributes;
    attributes.addBool(cka::token, true);
    attributes.addBool(cka::id, false);
    EXPECT_EQ(bytesOf(attributes.value(cka::token)), std::vector<unsigned char>{1});
    EXPECT_EQ(bytesOf(attributes.value(cka::id)), std::vector<unsigned char>{0});
}

TEST(CkAttributes, RefusesToHoldAValueLongerThanItWouldRead) {
    CkAttributes attributes;
    attributes.add(cka::value);
    const std::vector<unsigned char> longest(CkAttributes::maxValueLength + 1);
    attributes.setValue(cka::value, Range(longest.data(), longest.size() - 1));
    EXPECT_EQ(attributes.value(cka::value).size(), CkAttributes::maxValueLength);
    expectCryptokiError(
        L"19", [&] { attributes.setValue(cka::value, Range(longest.data(), longest.size())); });
    EXPECT_EQ(attributes.value(cka::value).size(), CkAttributes::maxValueLength);
}

TEST(CkAttributes, NamesItsHeaderAsTheSourceOfItsErrors) {
    const CkAttributes attributes;
    const auto error = cryptokiErrorOf([&] { attributes.value(cka::label); });
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->file().c_str(), L"pkcs11\\include\\ckattributes.h");
}

TEST(CkAttributes, CopiesAValueThatIsSet) {
    CkAttributes attributes;
    attributes.add(cka::id);
    unsigned char bytes[] = {1, 2, 3};
    attributes.setValue(cka::id, Range(bytes, 3));
    bytes[0] = 9;
    EXPECT_EQ(bytesOf(attributes.value(cka::id)), (std::vector<unsigned char>{1, 2, 3}));
    EXPECT_EQ(attributes.entries()[0].length, 3u);
}

TEST(CkAttributes, ReplacesAValueThatIsSetAgain) {
    CkAttributes attributes;
    attributes.addNumber(cka::id, 7);
    const unsigned char byte = 5;
    attributes.setValue(cka::id, Range(&byte, 1));
    EXPECT_EQ(bytesOf(attributes.value(cka::id)), std::vector<unsigned char>{5});
}

TEST(CkAttributes, HoldsAnEmptyValueThatIsSetAsPresent) {
    CkAttributes attributes;
    attributes.add(cka::id);
    attributes.setValue(cka::id, Range());
    EXPECT_NE(attributes.value(cka::id).data(), nullptr);
    EXPECT_TRUE(attributes.value(cka::id).empty());
}

TEST(CkAttributes, HoldsANumberAsACkUlong) {
    CkAttributes attributes;
    attributes.addNumber(cka::objectClass, 3);
    const Range number = attributes.value(cka::objectClass);
    CkUlong read = 0;
    ASSERT_EQ(number.size(), sizeof(read));
    std::memcpy(&read, number.data(), sizeof(read));
    EXPECT_EQ(read, 3u);
}

TEST(CkAttributes, GivesAnEmptyNullRangeForAnAbsentValue) {
    CkAttributes attributes;
    attributes.add(cka::id);
    EXPECT_EQ(attributes.value(cka::id).data(), nullptr);
    EXPECT_TRUE(attributes.value(cka::id).empty());
}

TEST(CkAttributes, ThrowsAttributeValueInvalidForALengthWithoutAValue) {
    CkAttributes attributes;
    attributes.add(cka::id);
    attributes.setReturnedLength(0, 1);
    expectCryptokiError(L"19", [&] { attributes.value(cka::id); });
}

TEST(CkAttributes, AllocatesExactlyTheReturnedLengthsAndNothingForLengthZero) {
    CkAttributes attributes;
    attributes.add(cka::value);
    attributes.add(cka::id);
    attributes.setReturnedLength(0, 5);
    attributes.setReturnedLength(1, 0);
    attributes.allocateValues();
    EXPECT_EQ(attributes.entries()[0].capacity, 5u);
    EXPECT_EQ(attributes.value(cka::value).size(), 5u);
    EXPECT_EQ(attributes.value(cka::id).data(), nullptr);
}

TEST(CkAttributes, AllocatesZeroedMemory) {
    CkAttributes attributes;
    attributes.add(cka::value);
    attributes.setReturnedLength(0, 100);
    attributes.allocateValues();
    EXPECT_EQ(bytesOf(attributes.value(cka::value)), std::vector<unsigned char>(100, 0));
}

TEST(CkAttributes, RefusesALengthBeyondItsLimitBeforeItAllocates) {
    CkAttributes attributes;
    attributes.add(cka::value);
    attributes.setReturnedLength(0, CkAttributes::maxValueLength + 1);
    expectCryptokiError(L"19", [&] { attributes.allocateValues(); });
    EXPECT_EQ(attributes.entries()[0].value, nullptr);
}

TEST(CkAttributes, AllocatesALengthOfExactlyItsLimit) {
    CkAttributes attributes;
    attributes.add(cka::value);
    attributes.setReturnedLength(0, CkAttributes::maxValueLength);
    attributes.allocateValues();
    EXPECT_EQ(attributes.value(cka::value).size(), CkAttributes::maxValueLength);
}

TEST(CkAttributes, RefusesTheLengthOfAValueThatIsUnavailable) {
    CkAttributes attributes;
    attributes.add(cka::value);
    attributes.setReturnedLength(0, static_cast<CkUlong>(-1));
    expectCryptokiError(L"19", [&] { attributes.allocateValues(); });
}

TEST(CkAttributes, RefusesALengthBeyondTheRoomOfAValue) {
    CkAttributes attributes;
    attributes.add(cka::value);
    attributes.setReturnedLength(0, 4);
    attributes.allocateValues();
    expectCryptokiError(L"19", [&] { attributes.setReturnedLength(0, 5); });
    EXPECT_EQ(attributes.value(cka::value).size(), 4u);
}

TEST(CkAttributes, HoldsAValueThatShrankToNothingAsPresentAndEmpty) {
    CkAttributes attributes;
    attributes.add(cka::id);
    attributes.setReturnedLength(0, 4);
    attributes.allocateValues();
    attributes.setReturnedLength(0, 0);
    EXPECT_NE(attributes.value(cka::id).data(), nullptr);
    EXPECT_TRUE(attributes.value(cka::id).empty());
}

TEST(CkAttributes, KeepsItsValuesWhenMoved) {
    CkAttributes attributes;
    attributes.addBool(cka::token, true);
    const CkAttributes moved = std::move(attributes);
    EXPECT_EQ(bytesOf(moved.value(cka::token)), std::vector<unsigned char>{1});
}

} // namespace
