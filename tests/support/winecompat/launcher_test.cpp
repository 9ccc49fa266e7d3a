// The launcher: it passes on all that goes in and out of a program, and loads the layer into it.
#include "certbuilder.h"
#include "childprocess.h"
#include "storeview.h"

#include <gtest/gtest.h>

#include <string>

namespace testsupport {
namespace {

std::wstring quoted(const std::wstring& name) {
    return L'"' + folderOfThisProgram() + name + L'"';
}

ChildResult launch(const std::wstring& arguments, const std::string& input = {}) {
    return runChild(quoted(L"winecompat-launcher.exe") + L" " + quoted(L"launched.exe") + L" " +
                        arguments,
                    input);
}

TEST(WineCompatLauncher, PassesArgumentsOnAsTheyWereWritten) {
    EXPECT_EQ(launch(L"echo \"a b\" \"\" c\\\"d \"e\\\\\" 100%  last").output,
              "[a b]\r\n[]\r\n[c\"d]\r\n[e\\]\r\n[100%]\r\n[last]\r\n");
}

TEST(WineCompatLauncher, ConnectsStandardStreams) {
    const ChildResult echoed = launch(L"echo", "first\r\nsecond\r\n");
    EXPECT_EQ(echoed.output, "first\r\nsecond\r\n");
    EXPECT_EQ(echoed.errors, "");
    EXPECT_EQ(launch(L"exit 0").errors, "ending\r\n");
}

TEST(WineCompatLauncher, EndsWithTheProgramsExitCode) {
    EXPECT_EQ(launch(L"exit 0").exitCode, 0u);
    EXPECT_EQ(launch(L"exit 37").exitCode, 37u);
    EXPECT_EQ(launch(L"exit -1").exitCode, 0xFFFFFFFFu);
}

TEST(WineCompatLauncher, SaysThatAProgramCannotBeStarted) {
    const ChildResult result = runChild(quoted(L"winecompat-launcher.exe") + L" nosuchprogram.exe");
    EXPECT_EQ(result.exitCode, 125u);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors.find("(error 2)"), std::string::npos) << result.errors;
}

TEST(WineCompatLauncher, SaysHowItIsUsed) {
    const ChildResult result = runChild(quoted(L"winecompat-launcher.exe"));
    EXPECT_EQ(result.exitCode, 125u);
    EXPECT_NE(result.errors.find("usage:"), std::string::npos) << result.errors;
}

TEST(WineCompatLauncher, LoadsTheLayerBeforeTheProgramUsesAStore) {
    const TestStore store;
    store.add({CertBuilder().build(), {}, {}, {}});
    EXPECT_EQ(launch(L"property " + store.name()).exitCode, 0u);
    EXPECT_EQ(store.entries().at(0).korvaneCspRef, (Bytes{'a', '\n', 'b', '\n'}));
}

} // namespace
} // namespace testsupport
