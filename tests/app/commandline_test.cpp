// The command line.
#include "commandline.h"

#include "failures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace updater {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

Options parsed(const std::vector<std::string>& arguments) {
    return std::get<Options>(parseCommandLine(arguments));
}

std::string complaintAbout(const std::vector<std::string>& arguments) {
    try {
        parseCommandLine(arguments);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::usage);
        return failure.what();
    }
    ADD_FAILURE() << "it was accepted";
    return {};
}

TEST(CommandLine, OfSyncNamesModuleCspAndStore) {
    const Options options =
        parsed({"sync", "--module", "C:\\token.dll", "--csp", "Some CSP", "--store", "Root"});
    EXPECT_EQ(options.command, Command::sync);
    EXPECT_EQ(options.module, L"C:\\token.dll");
    EXPECT_EQ(options.csp, L"Some CSP");
    EXPECT_EQ(options.store, L"Root");
    EXPECT_EQ(options.pin.kind, PinSource::Kind::prompt);
}

TEST(CommandLine, TakesThePersonalStoreUnlessItIsTold) {
    EXPECT_EQ(parsed({"list", "--csp", "C"}).store, L"MY");
}

TEST(CommandLine, KnowsItsCommands) {
    EXPECT_EQ(parsed({"status", "--module", "m", "--csp", "C"}).command, Command::status);
    EXPECT_EQ(parsed({"list", "--csp", "C"}).command, Command::list);
    EXPECT_EQ(parsed({"clean", "--csp", "C"}).command, Command::clean);
}

TEST(CommandLine, IsUtf8) {
    EXPECT_EQ(parsed({"list", "--csp", "\xC3\xA4\xF0\x9F\x94\x91"}).csp, L"\u00E4\U0001F511");
}

TEST(CommandLine, TakesValuesThatBeginWithASlash) {
    EXPECT_EQ(parsed({"sync", "--module", "/m.dll", "--csp", "/c"}).module, L"/m.dll");
}

TEST(CommandLine, NamesOnePinSource) {
    const std::vector<std::string> sync{"sync", "--module", "m", "--csp", "C"};
    const auto with = [&](const std::vector<std::string>& more) {
        std::vector<std::string> arguments = sync;
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    };
    EXPECT_EQ(parsed(with({"--pin-file", "p"})).pin.kind, PinSource::Kind::file);
    EXPECT_EQ(parsed(with({"--pin-file", "p"})).pin.name, L"p");
    EXPECT_EQ(parsed(with({"--pin-stdin"})).pin.kind, PinSource::Kind::standardInput);
    EXPECT_EQ(parsed(with({"--pin-env", "V"})).pin.kind, PinSource::Kind::environment);
    EXPECT_EQ(parsed(with({"--pin-env", "V"})).pin.name, L"V");
    complaintAbout(with({"--pin-file", "p", "--pin-stdin"}));
    complaintAbout(with({"--pin-file", "p", "--pin-env", "V"}));
    complaintAbout(with({"--pin-env", "V", "--pin-stdin"}));
}

TEST(CommandLine, RefusesAPinAndDoesNotRepeatIt) {
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", "--pin", "8241"}),
                AllOf(HasSubstr("no option --pin"), Not(HasSubstr("8241"))));
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", "--pin=8241"}),
                AllOf(HasSubstr("no option --pin"), Not(HasSubstr("8241"))));
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", "8241"}),
                Not(HasSubstr("8241")));
}

TEST(CommandLine, RefusesAnEmptyCspWhichWouldMeanEveryCsp) {
    EXPECT_THAT(complaintAbout({"clean", "--csp", ""}), HasSubstr("--csp"));
}

TEST(CommandLine, RefusesACspOfTwoLines) {
    EXPECT_THAT(complaintAbout({"clean", "--csp", "a\nb"}), HasSubstr("--csp"));
}

TEST(CommandLine, RefusesWhatIsMissing) {
    EXPECT_THAT(complaintAbout({}), HasSubstr("a command is missing"));
    EXPECT_THAT(complaintAbout({"sinc"}), HasSubstr("a command is missing or unknown"));
    EXPECT_THAT(complaintAbout({"list"}), HasSubstr("--csp"));
    EXPECT_THAT(complaintAbout({"sync", "--csp", "C"}), HasSubstr("--module"));
    EXPECT_THAT(complaintAbout({"sync", "--csp", "C", "--module", ""}), HasSubstr("--module"));
    EXPECT_THAT(complaintAbout({"list", "--csp", "C", "--store", ""}), HasSubstr("--store"));
    EXPECT_THAT(complaintAbout({"list", "--csp"}), HasSubstr("--csp"));
}

TEST(CommandLine, RefusesTokenOptionsWhereNoTokenIsNeeded) {
    EXPECT_THAT(complaintAbout({"clean", "--csp", "C", "--module", "m"}),
                HasSubstr("no option --module"));
}

TEST(CommandLine, HelpsWithoutAnythingElse) {
    const auto helpOf = [](const std::vector<std::string>& arguments) {
        return std::get<HelpText>(parseCommandLine(arguments)).text;
    };
    EXPECT_THAT(helpOf({"--help"}), AllOf(HasSubstr(L"status"), HasSubstr(L"Exit codes:")));
    EXPECT_THAT(helpOf({"sync", "--help"}),
                AllOf(HasSubstr(L"--pin-file"), HasSubstr(L"tried once")));
    EXPECT_THAT(helpOf({"clean", "-h"}), Not(HasSubstr(L"--pin-file")));
}

} // namespace
} // namespace updater
