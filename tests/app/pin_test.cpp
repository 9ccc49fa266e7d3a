// Where the PIN comes from.
#include "pin.h"

#include "failures.h"
#include "secret.h"
#include "testfolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <string>

namespace updater {
namespace {

using testing::HasSubstr;
using testsupport::TestFolder;

std::string textOf(const Pin& pin) {
    return std::string(pin.bytes().begin(), pin.bytes().end());
}

void expectRefused(const PinSource& source, const char* reason) {
    try {
        readPin(source);
        ADD_FAILURE() << "it was accepted";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::usage);
        EXPECT_THAT(failure.what(), HasSubstr(reason));
    }
}

class PinFile : public testing::Test {
protected:
    PinSource holding(std::string_view contents) const {
        return {PinSource::Kind::file, folder.write("pin", contents).wstring()};
    }

    TestFolder folder;
};

TEST_F(PinFile, IsTakenAsItIs) {
    EXPECT_EQ(textOf(readPin(holding("12 34\xFF"))), "12 34\xFF");
}

TEST_F(PinFile, LosesOneLineEnd) {
    EXPECT_EQ(textOf(readPin(holding("1234\n"))), "1234");
    EXPECT_EQ(textOf(readPin(holding("1234\r\n"))), "1234");
}

TEST_F(PinFile, WithWhatCannotBeInAPinIsNotTried) {
    for (const std::string_view contents :
         {std::string_view("1234\n\n"), std::string_view("1234\r"), std::string_view("12\n34"),
          std::string_view("12\t34"), std::string_view("12\x7F"),
          std::string_view("1\0"
                           "2\0",
                           4)}) // UTF-16 without a mark
        expectRefused(holding(contents), "control character");
}

TEST_F(PinFile, MustNotBeEmpty) {
    expectRefused(holding(""), "is empty");
    expectRefused(holding("\n"), "is empty");
    expectRefused(holding("\r\n"), "is empty");
}

TEST_F(PinFile, HoldsAsMuchAsAPinCanBeLong) {
    const std::string longest(255, '1');
    EXPECT_EQ(textOf(readPin(holding(longest + "\r\n"))), longest);
    expectRefused(holding(longest + "1"), "too long");
    expectRefused(holding(std::string(100'000, '1')), "too long");
}

TEST_F(PinFile, WithAByteOrderMarkIsNotTried) {
    expectRefused(holding(std::string_view("\xFF\xFE"
                                           "1\0"
                                           "2\0",
                                           6)),
                  "byte order mark");
    expectRefused(holding("\xFE\xFF"
                          "12"),
                  "byte order mark");
    expectRefused(holding("\xEF\xBB\xBF"
                          "1234"),
                  "byte order mark");
}

TEST_F(PinFile, MustExist) {
    expectRefused({PinSource::Kind::file, (folder.path() / "none").wstring()}, "cannot be read");
    expectRefused({PinSource::Kind::file, folder.path().wstring()}, "cannot be read");
}

TEST_F(PinFile, MayHaveAnyName) {
    const auto file = folder.write(L"p\u00EFn \u2713", "1234");
    EXPECT_EQ(textOf(readPin({PinSource::Kind::file, file.wstring()})), "1234");
}

class PinVariable : public testing::Test {
protected:
    ~PinVariable() override { SetEnvironmentVariableW(name, nullptr); }

    PinSource holding(const wchar_t* value) const {
        SetEnvironmentVariableW(name, value);
        return {PinSource::Kind::environment, name};
    }

    static constexpr wchar_t name[] = L"CSU_TEST_PIN";
};

TEST_F(PinVariable, IsTakenAsUtf8) {
    EXPECT_EQ(textOf(readPin(holding(L"1\u00E42\U0001F511"))), "1\xC3\xA4"
                                                               "2\xF0\x9F\x94\x91");
}

TEST_F(PinVariable, MustBeSetAndNotEmpty) {
    expectRefused({PinSource::Kind::environment, name}, "is not set");
    expectRefused(holding(L""), "is empty");
}

TEST_F(PinVariable, HoldsAsMuchAsAPinCanBeLong) {
    EXPECT_EQ(textOf(readPin(holding(std::wstring(255, L'1').c_str()))), std::string(255, '1'));
    for (const std::size_t size : {256u, 257u, 258u, 259u, 5000u})
        expectRefused(holding(std::wstring(size, L'1').c_str()), "too long");
    expectRefused(holding(std::wstring(200, L'\u20AC').c_str()), "too long");
}

TEST_F(PinVariable, IsTakenAwayOnceItIsRead) {
    EXPECT_EQ(textOf(readPin(holding(L"1234"))), "1234");
    EXPECT_EQ(GetEnvironmentVariableW(name, nullptr, 0), 0u);
}

TEST_F(PinVariable, MustBeUnicode) {
    const wchar_t loneHalf[] = {L'1', static_cast<wchar_t>(0xD83D), 0};
    expectRefused(holding(loneHalf), "no Unicode text");
}

TEST(PinInMemory, IsWipedWhenItIsDoneWith) {
    constexpr std::string_view secret = "83749261";
    alignas(Pin) static unsigned char memory[sizeof(Pin)];
    auto* pin =
        new (memory) Pin(reinterpret_cast<const unsigned char*>(secret.data()), secret.size());
    const auto holdsSecret = [&] {
        const volatile unsigned char* const bytes = memory;
        const std::string copy(bytes, bytes + sizeof memory);
        return copy.find(secret) != std::string::npos;
    };
    ASSERT_TRUE(holdsSecret());
    pin->~Pin();
    EXPECT_FALSE(holdsSecret());
}

TEST(WipedArray, IsWipedWhenItIsDoneWith) {
    using Secret = WipedArray<unsigned char, 16>;
    alignas(Secret) static unsigned char memory[sizeof(Secret)];
    auto* secret = new (memory) Secret;
    std::fill_n(secret->data(), secret->capacity(), static_cast<unsigned char>('x'));
    const volatile unsigned char* const bytes = memory;
    ASSERT_EQ(bytes[0], 'x');
    secret->~Secret();
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof memory, [](int byte) { return byte == 0; }));
}

} // namespace
} // namespace updater
