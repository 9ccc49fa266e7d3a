// The command line.
#include "commandline.h"

#include "failures.h"
#include "text.h"
#include "version.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace updater {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

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
    EXPECT_EQ(parsed({"watch", "--module", "m", "--csp", "C"}).command, Command::watch);
    EXPECT_EQ(parsed({"csps"}).command, Command::csps);
    EXPECT_EQ(parsed({"verify", "f"}).command, Command::verify);
    EXPECT_EQ(parsed({"grant", "p"}).command, Command::grant);
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
    EXPECT_EQ(parsed(with({"--pin-file", "-"})).pin.kind, PinSource::Kind::standardInput);
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
    for (const char* const typed : {"-p8241", "--pin:8241", "--pin8241", "--pin-stdin=8241",
                                    "--allow-unsigned-module=8241", "-8241", "--8241"})
        EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", typed}),
                    AllOf(HasSubstr("-"), Not(HasSubstr("824"))))
            << typed;
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", "--pinenv"}),
                StartsWith("there is no option --pin (did you mean --pin-env?)"));
    for (const char* const typed : {"-psecret", "--pinsecret", "--PINsecret", "--pin=secret"})
        EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", typed}),
                    AllOf(HasSubstr("there is no option -"), Not(HasSubstr("secret"))))
            << typed;
}

TEST(CommandLine, SaysWhatIsWrongWithAnOptionInItsOwnWords) {
    const auto complaintOf = [](std::vector<std::string> more) {
        more.insert(more.begin(), {"watch", "--module", "m", "--csp", "C"});
        return complaintAbout(more);
    };
    EXPECT_THAT(complaintOf({"--json=yes"}), StartsWith("--json takes no value;"));
    EXPECT_THAT(complaintOf({"--store"}), StartsWith("--store lacks its value;"));
    EXPECT_THAT(complaintOf({"--csp", "D"}), StartsWith("--csp is given more than once;"));
    EXPECT_THAT(complaintOf({"--pin-file", "p", "--pin-stdin"}),
                StartsWith("only one of --pin-file and --pin-stdin can be given;"));
    EXPECT_THAT(complaintOf({"--interval", "soon"}),
                StartsWith("--interval must be from 0.1 to 86400 seconds;"));
    EXPECT_THAT(complaintAbout({"sync", "--csp", "C"}), StartsWith("--module is required;"));
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", "--exit-code"}),
                StartsWith("--exit-code requires --dry-run;"));
}

TEST(CommandLine, ThatCannotBeReadIsAnsweredAsItAsks) {
    EXPECT_FALSE(outputAskedFor({"sync", "--nonsense"}).json);
    const OutputOptions once = outputAskedFor({"sync", "--nonsense", "--json"});
    EXPECT_TRUE(once.json && !once.lines);
    const OutputOptions always = outputAskedFor({"watch", "--nonsense", "--json"});
    EXPECT_TRUE(always.json && always.lines);
}

TEST(CommandLine, RefusesAnEmptyCspWhichWouldMeanEveryCsp) {
    EXPECT_THAT(complaintAbout({"clean", "--csp", ""}), HasSubstr("--csp"));
}

// As in a script whose variable is not set: --csp=%CSP% --dry-run
TEST(CommandLine, TakesNoOptionForTheValueOfAnotherOne) {
    const std::vector<std::vector<std::string>> empty{
        {"sync", "--module", "m", "--csp=", "--dry-run"},
        {"clean", "--csp=", "--store=Foo"},
        {"list", "--csp="},
        {"list", "--csp", ""},
    };
    for (const auto& arguments : empty)
        EXPECT_THAT(complaintAbout(arguments), StartsWith("--csp must not be empty;"));
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", "--store=", "--dry-run"}),
                StartsWith("--store must not be empty;"));
    EXPECT_THAT(complaintAbout({"sync", "--module=", "--csp", "C"}),
                StartsWith("--module must not be empty;"));
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", "--pin-file="}),
                StartsWith("--pin-file must not be empty;"));
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "C", "--pin-env", ""}),
                StartsWith("--pin-env must not be empty;"));
    EXPECT_THAT(complaintAbout({"watch", "--module", "m", "--csp", "C", "--interval="}),
                StartsWith("--interval must not be empty;"));
    EXPECT_THAT(complaintAbout({"sync", "--module", "m", "--csp", "--dry-run"}),
                StartsWith("--csp lacks its value;"));
    EXPECT_THAT(complaintAbout({"list", "--csp", "--"}), StartsWith("--csp lacks its value;"));
    EXPECT_EQ(parsed({"list", "--csp=--dry-run"}).csp, L"--dry-run");
    EXPECT_EQ(parsed({"list", "--csp", "-x"}).csp, L"-x");
    EXPECT_EQ(parsed({"list", "--csp=a=b="}).csp, L"a=b=");
    EXPECT_EQ(parsed({"list", "--csp", "[a,b]", "--store=[c]"}).csp, L"[a,b]");
}

TEST(CommandLine, TakesAPathAsItWasTyped) {
    const auto expectPath = [](const std::string& path) {
        for (const char* const command : {"verify", "grant"}) {
            std::vector<std::string> arguments{command, path, "second"};
            if (path.size() > 1 && path.front() == '-')
                arguments.insert(arguments.begin() + 1, "--");
            EXPECT_EQ(parsed(arguments).paths,
                      (std::vector<std::wstring>{toWide(path), L"second"}));
        }
    };
    for (char c = ' '; c <= '~'; ++c) {
        const std::string character(1, c);
        expectPath(character);
        expectPath(character + character);
        expectPath(character + "name" + character);
        expectPath("name" + character + "name");
    }
    for (const char* const path :
         {"[x]", "[a,b]", "{a,b}", "\"x\"", "'x'", "%%", "x ", "--help", "0"})
        expectPath(path);
}

TEST(CommandLine, AnswersWhatWasMeant) {
    const auto helpOf = [](const std::vector<std::string>& arguments) {
        return std::get<HelpText>(parseCommandLine(arguments)).text;
    };
    EXPECT_EQ(helpOf({"help"}), helpOf({"--help"}));
    EXPECT_EQ(helpOf({"help", "sync"}), helpOf({"sync", "--help"}));
    EXPECT_EQ(helpOf({"/?"}), helpOf({"--help"}));
    EXPECT_EQ(helpOf({"sync", "/?"}), helpOf({"sync", "--help"}));
    EXPECT_EQ(helpOf({"-V"}), helpOf({"--version"}));
    EXPECT_THAT(complaintAbout({"help", "sinc"}), HasSubstr("did you mean sync?"));
    EXPECT_THAT(complaintAbout({"--json", "status"}),
                StartsWith("--json must come after the command: certstoreupdate status --json;"));
    EXPECT_THAT(complaintAbout({"--csp=C", "list"}),
                StartsWith("--csp must come after the command: certstoreupdate list --csp;"));
    EXPECT_THAT(complaintAbout({"--jsan", "status"}), StartsWith("there is no option --jsan"));
}

TEST(CommandLine, HasShortFormsOfCommonOptions) {
    const Options sync = parsed({"sync", "--module", "m", "--csp", "C", "-nq"});
    EXPECT_TRUE(sync.dryRun && sync.output.quiet);
    EXPECT_TRUE(parsed({"csps", "-v"}).output.verbose);
}

TEST(CommandLine, RefusesACspOfTwoLines) {
    EXPECT_THAT(complaintAbout({"clean", "--csp", "a\nb"}), HasSubstr("--csp"));
}

TEST(CommandLine, RefusesWhatIsMissing) {
    EXPECT_THAT(complaintAbout({}), HasSubstr("a command is missing"));
    EXPECT_THAT(complaintAbout({"clean"}), HasSubstr("--csp"));
    EXPECT_THAT(complaintAbout({"sync", "--csp", "C"}), HasSubstr("--module"));
    EXPECT_THAT(complaintAbout({"sync", "--csp", "C", "--module", ""}), HasSubstr("--module"));
    EXPECT_THAT(complaintAbout({"list", "--csp", "C", "--store", ""}), HasSubstr("--store"));
    EXPECT_THAT(complaintAbout({"list", "--csp"}), HasSubstr("--csp"));
}

TEST(CommandLine, RefusesTokenOptionsWhereNoTokenIsNeeded) {
    EXPECT_THAT(complaintAbout({"clean", "--csp", "C", "--module", "m"}),
                HasSubstr("no option --module"));
}

TEST(CommandLine, SaysWhatWasPerhapsMeant) {
    EXPECT_THAT(complaintAbout({"sinc"}), HasSubstr("did you mean sync?"));
    EXPECT_THAT(complaintAbout({"sync", "--dryrun"}), HasSubstr("did you mean --dry-run?"));
    EXPECT_THAT(complaintAbout({"csps", "--jason"}), HasSubstr("did you mean --json?"));
    EXPECT_THAT(complaintAbout({"8241"}),
                AllOf(HasSubstr("no such command"), Not(HasSubstr("did you mean")),
                      Not(HasSubstr("8241"))));
}

TEST(CommandLine, OfSyncSelectsAndRehearses) {
    const Options plain = parsed({"sync", "--module", "m", "--csp", "C"});
    EXPECT_EQ(plain.signing, ModuleFile::Signing::required);
    EXPECT_FALSE(plain.dryRun || plain.selection.authorities || plain.selection.others);
    EXPECT_FALSE(plain.output.json || plain.output.quiet || plain.output.verbose);
    const Options all = parsed({"sync", "--module", "m", "--csp", "C", "--dry-run", "--ca",
                                "--other", "--allow-unsigned-module", "--json", "--verbose"});
    EXPECT_EQ(all.signing, ModuleFile::Signing::notRequired);
    EXPECT_TRUE(all.dryRun && all.selection.authorities && all.selection.others);
    EXPECT_TRUE(all.output.json && all.output.verbose);
    complaintAbout({"sync", "--module", "m", "--csp", "C", "--quiet", "--verbose"});
}

TEST(CommandLine, OfWatchHasAnIntervalInSeconds) {
    const std::vector<std::string> watch{"watch", "--module", "m", "--csp", "C"};
    EXPECT_EQ(parsed(watch).interval, std::chrono::seconds(2));
    const auto with = [&](const char* seconds) {
        std::vector<std::string> arguments = watch;
        arguments.insert(arguments.end(), {"--clean", "--interval", seconds});
        return arguments;
    };
    EXPECT_EQ(parsed(with("0.25")).interval, std::chrono::milliseconds(250));
    EXPECT_TRUE(parsed(with("86400")).cleanWhenGone);
    for (const char* refused : {"0", "-1", "0.05", "86401", "1e99", "nan", "soon", ""})
        complaintAbout(with(refused));
}

TEST(CommandLine, OfListNamesNoCspOrOne) {
    EXPECT_EQ(parsed({"list"}).csp, L"");
    EXPECT_EQ(parsed({"list", "--csp", "C"}).csp, L"C");
    EXPECT_THAT(complaintAbout({"list", "--csp", ""}), HasSubstr("--csp must not be empty"));
}

TEST(CommandLine, OfVerifyAndGrantNamesPaths) {
    EXPECT_EQ(parsed({"verify", "a.dll", "C:\\b c.msi"}).paths,
              (std::vector<std::wstring>{L"a.dll", L"C:\\b c.msi"}));
    const Options grant = parsed({"grant", "--recursive", "folder"});
    EXPECT_EQ(grant.paths, std::vector<std::wstring>{L"folder"});
    EXPECT_TRUE(grant.recursive);
    complaintAbout({"verify"});
    complaintAbout({"grant", "--recursive"});
    EXPECT_THAT(complaintAbout({"grant", ""}), HasSubstr("a path must not be empty"));
    EXPECT_THAT(complaintAbout({"verify", "--recursive", "a"}), HasSubstr("no option --recursive"));
}

TEST(CommandLine, ShowsTheVersion) {
    const std::wstring text = std::get<HelpText>(parseCommandLine({"--version"})).text;
    EXPECT_EQ(text, L"certstoreupdate " + toWide(version) + L"\n");
}

TEST(CommandLine, HelpsWithExamplesForEveryCommand) {
    for (const char* const command :
         {"status", "sync", "watch", "list", "clean", "csps", "verify", "grant"}) {
        const std::wstring help = std::get<HelpText>(parseCommandLine({command, "--help"})).text;
        EXPECT_NE(help.find(L"\nExamples:\n  certstoreupdate "), std::wstring::npos) << command;
    }
}

TEST(CommandLine, HelpsInLinesThatFitAConsole) {
    for (const char* const command :
         {"", "status", "sync", "watch", "list", "clean", "csps", "verify", "grant"}) {
        std::vector<std::string> arguments{"--help"};
        if (*command)
            arguments.insert(arguments.begin(), command);
        std::wistringstream help(std::get<HelpText>(parseCommandLine(arguments)).text);
        for (std::wstring line; std::getline(help, line);)
            EXPECT_LE(line.size(), 98u) << command << ": " << toUtf8(line);
    }
}

TEST(CommandLine, HelpsWithoutAnythingElse) {
    const auto helpOf = [](const std::vector<std::string>& arguments) {
        return std::get<HelpText>(parseCommandLine(arguments)).text;
    };
    EXPECT_THAT(helpOf({"--help"}), AllOf(HasSubstr(L"status"), HasSubstr(L"Exit codes:")));
    EXPECT_THAT(
        helpOf({"sync", "--help"}),
        AllOf(HasSubstr(L"--pin-file"), HasSubstr(L"tried once"), HasSubstr(L"\n  -q, --quiet  ")));
    EXPECT_THAT(helpOf({"clean", "-h"}), Not(HasSubstr(L"--pin-file")));
}

} // namespace
} // namespace updater
