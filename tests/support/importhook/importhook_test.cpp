// Redirection of imports, tried on this program's own import table.
#include "importhook.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

namespace testsupport {
namespace {

using testing::ElementsAre;

using DivideHook = ImportHook<decltype(MulDiv)>;

// A compiler may load an imported address once for all calls within a function, so each call that a
// hook is to see is in a function of its own.
using Divide = int (*)(int, int, int);
int callMulDiv(int number, int numerator, int denominator) {
    return MulDiv(number, numerator, denominator);
}
volatile Divide divide = callMulDiv;
using Ticks = DWORD (*)();
DWORD callGetTickCount() {
    return GetTickCount();
}
volatile Ticks ticks = callGetTickCount;

void* thisProgram() {
    return GetModuleHandleW(nullptr);
}

TEST(ImportHook, RecordsCallsAndTheirArgumentsAndLetsThemPass) {
    DivideHook hook(thisProgram(), "kernel32.dll", "MulDiv");
    EXPECT_EQ(divide(6, 4, 3), 8);
    EXPECT_EQ(divide(10, 1, 5), 2);
    EXPECT_THAT(hook.calls(), ElementsAre(DivideHook::Call(6, 4, 3), DivideHook::Call(10, 1, 5)));
    EXPECT_EQ(hook.argument<0>(2), 10);
}

TEST(ImportHook, FindsTheDllInAnyLetterCase) {
    const DivideHook hook(thisProgram(), "KeRnEl32.DLL", "MulDiv");
    divide(1, 1, 1);
    EXPECT_EQ(hook.count(), 1u);
}

TEST(ImportHook, EndsWithItsScope) {
    std::size_t seen = 0;
    {
        const DivideHook hook(thisProgram(), "kernel32.dll", "MulDiv");
        divide(1, 1, 1);
        seen = hook.count();
    }
    EXPECT_EQ(divide(6, 4, 3), 8);
    EXPECT_EQ(seen, 1u);
}

TEST(ImportHook, FailsOnlyTheCallThatItIsToldTo) {
    DivideHook hook(thisProgram(), "kernel32.dll", "MulDiv");
    hook.fail(2, -1, ERROR_CANCELLED);
    EXPECT_EQ(divide(6, 4, 3), 8);
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(divide(6, 4, 3), -1);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_CANCELLED));
    EXPECT_EQ(divide(6, 4, 3), 8);
}

TEST(ImportHook, AnswersByAReplacementThatMayCallTheOriginal) {
    DivideHook hook(thisProgram(), "kernel32.dll", "MulDiv");
    hook.replace([&hook](int a, int b, int c) { return 100 + hook.original(a, b, c); });
    EXPECT_EQ(divide(6, 4, 3), 108);
    hook.reset();
    EXPECT_EQ(hook.count(), 0u);
    EXPECT_EQ(divide(6, 4, 3), 8);
}

TEST(ImportHook, NestsOnOneFunction) {
    DivideHook outer(thisProgram(), "kernel32.dll", "MulDiv");
    outer.replace([](int, int, int) { return 1; });
    {
        DivideHook inner(thisProgram(), "kernel32.dll", "MulDiv");
        inner.replace([&inner](int a, int b, int c) { return 10 + inner.original(a, b, c); });
        EXPECT_EQ(divide(6, 4, 3), 11);
    }
    EXPECT_EQ(divide(6, 4, 3), 1);
    EXPECT_EQ(outer.count(), 2u);
}

TEST(ImportHook, LogsTheOrderOfCallsToDifferentFunctions) {
    CallLog log;
    const DivideHook divisions(thisProgram(), "kernel32.dll", "MulDiv", &log);
    const ImportHook<decltype(GetTickCount)> tickCounts(thisProgram(), "kernel32.dll",
                                                        "GetTickCount", &log);
    ticks();
    divide(1, 1, 1);
    ticks();
    EXPECT_THAT(log.names(), ElementsAre("GetTickCount", "MulDiv", "GetTickCount"));
}

TEST(ImportHook, RefusesAFunctionThatTheModuleDoesNotImport) {
    EXPECT_THROW(DivideHook(thisProgram(), "kernel32.dll", "NoSuchFunction"),
                 std::invalid_argument);
    EXPECT_THROW(DivideHook(thisProgram(), "nosuch.dll", "MulDiv"), std::invalid_argument);
}

/// What a program keeps that looks a function up once and calls it later.
volatile Divide lookedUp = nullptr;

TEST(ImportHook, SeesCallsThroughAPointerThatTheModuleLookedUp) {
    lookedUp = reinterpret_cast<Divide>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "MulDiv")));
    {
        DivideHook hook(ImportSlot::ofPointers(thisProgram(), "kernel32.dll", "MulDiv"), "MulDiv");
        hook.replace([&hook](int a, int b, int c) { return 100 + hook.original(a, b, c); });
        EXPECT_EQ(lookedUp(6, 4, 3), 108);
    }
    EXPECT_EQ(lookedUp(6, 4, 3), 8);
}

TEST(ImportHook, RefusesAPointerThatTheModuleDoesNotHave) {
    EXPECT_THROW(ImportSlot::ofPointers(thisProgram(), "kernel32.dll", "GetFirmwareType"),
                 std::invalid_argument);
    EXPECT_THROW(ImportSlot::ofPointers(thisProgram(), "kernel32.dll", "NoSuchFunction"),
                 std::invalid_argument);
}

TEST(ImportHook, RefusesMoreHooksOfOneSignatureThanItCanTellApart) {
    std::vector<std::unique_ptr<DivideHook>> hooks;
    const auto addHook = [&hooks] {
        hooks.push_back(std::make_unique<DivideHook>(thisProgram(), "kernel32.dll", "MulDiv"));
    };
    for (int i = 0; i != 8; ++i)
        addHook();
    EXPECT_THROW(addHook(), std::logic_error);
    while (!hooks.empty())
        hooks.pop_back();
    EXPECT_EQ(divide(6, 4, 3), 8);
}

#if defined(__MINGW64__)
TEST(ImportHook, CanMakeAnAllocationThrow) {
    constexpr std::size_t unlucky = 12345;
    ImportHook<void*(std::size_t)> allocate(thisProgram(), "libstdc++-6.dll", "_Znwy");
    allocate.replace([&allocate](std::size_t size) {
        return size == unlucky ? throw std::bad_alloc() : allocate.original(size);
    });
    EXPECT_THROW(static_cast<void>(::operator new(unlucky)), std::bad_alloc);
    ::operator delete(::operator new(8));
}
#endif

} // namespace
} // namespace testsupport
