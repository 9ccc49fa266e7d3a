// The command line.
#include "commandline.h"

#include "failures.h"
#include "text.h"

#include <windows.h>

#include <shellapi.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <utility>

namespace updater {

namespace {

constexpr char description[] =
    "Keeps a Windows certificate store in step with a PKCS#11 token, so that Windows programs\n"
    "can use the token's keys through a cryptographic service provider (CSP).";

constexpr char pinHelp[] =
    "The PIN is asked for on the console, or taken from one of --pin-file, --pin-stdin and\n"
    "--pin-env. It is tried once. No option takes the PIN itself: command lines can be read by\n"
    "others.";

struct CommandText {
    Command command;
    const char* name;
    const char* description;
    const char* details;
};

constexpr CommandText commandTexts[] = {
    {Command::status, "status", "Show token and store side by side; changes nothing",
     "States:\n"
     "  in step          registered as it is on the token\n"
     "  missing          on the token, not in the store; sync adds it\n"
     "  changed          the token has another certificate for this key; sync replaces it\n"
     "  bound otherwise  registered for another key container; sync binds it anew\n"
     "  not ours         in the store, but not registered by this program: left alone\n"
     "  duplicate        the same certificate is registered for another key of the token\n"
     "  stale            registered, and no longer on the token; sync removes it\n"
     "  foreign          bound to the CSP by another program, and not on the token: left alone\n"
     "  token only       has no private key on the token, so that it is not registered"},
    {Command::sync, "sync", "Register what is missing, then remove what is no longer on the token",
     "Registers the certificates whose private keys are on the token. Only what differs is\n"
     "changed, and nothing is removed that this program did not register. The token is the one in\n"
     "the module's first slot that holds one; what another token registered for the same CSP\n"
     "counts as no longer on the token."},
    {Command::list, "list", "List what is registered for the CSP",
     "Entries that are bound to the CSP but were not registered by this program are listed as\n"
     "\"not ours\"."},
    {Command::clean, "clean", "Remove everything that this program registered for the CSP",
     "Needs no token. Entries that this program did not register stay."},
};

bool needsToken(Command command) {
    return command == Command::status || command == Command::sync;
}

/// What the options are parsed into: UTF-8, as they come.
struct RawOptions {
    std::string module;
    std::string csp;
    std::string store = "MY";
    std::string pinFile;
    bool pinStdin = false;
    std::string pinEnvironment;
};

class Parser {
public:
    Parser() : app_(description, "certstoreupdate") {
        app_.allow_windows_style_options(false);
        app_.require_subcommand(1);
        app_.set_help_flag("-h,--help", "Show this help, or that of a command");
        app_.failure_message([](const CLI::App*, const CLI::Error&) { return std::string(); });
        app_.footer("certstoreupdate COMMAND --help tells more about a command.\n\n" +
                    exitCodeHelp());
        for (const CommandText& text : commandTexts)
            addCommand(text);
    }

    std::variant<Options, HelpText> parse(const std::vector<std::string>& arguments) {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        try {
            app_.parse(std::move(reversed));
        } catch (const CLI::CallForHelp&) {
            return HelpText{toWide(app_.help())};
        } catch (const CLI::ParseError& error) {
            throw usageError(error);
        }
        return options();
    }

private:
    void addCommand(const CommandText& text) {
        CLI::App* command = app_.add_subcommand(text.name, text.description);
        command->add_option("--csp", raw_.csp, "Name of the CSP that serves the token's keys")
            ->type_name("NAME")
            ->required();
        command->add_option("--store", raw_.store, "System store of the current user")
            ->type_name("NAME")
            ->capture_default_str();
        std::string details = text.details;
        if (needsToken(text.command)) {
            addTokenOptions(*command);
            details += std::string("\n\n") + pinHelp;
        }
        command->footer(details);
    }

    void addTokenOptions(CLI::App& command) {
        command
            .add_option("--module", raw_.module,
                        "The token's PKCS#11 module. A name without a folder is looked for beside "
                        "this program and in the system folder only")
            ->type_name("FILE")
            ->required();
        auto* file = command.add_option("--pin-file", raw_.pinFile, "Read the PIN from a file")
                         ->type_name("FILE");
        auto* input =
            command.add_flag("--pin-stdin", raw_.pinStdin, "Read the PIN from standard input");
        auto* environment = command
                                .add_option("--pin-env", raw_.pinEnvironment,
                                            "Take the PIN from an environment variable")
                                ->type_name("NAME");
        file->excludes(input)->excludes(environment);
        input->excludes(environment);
    }

    const CommandText& chosenCommand() const {
        return *std::find_if(
            std::begin(commandTexts), std::end(commandTexts),
            [&](const CommandText& text) { return app_.got_subcommand(text.name); });
    }

    Options options() const {
        const CommandText& command = chosenCommand();
        Options options;
        options.command = command.command;
        options.module = toWide(raw_.module);
        options.csp = toWide(raw_.csp);
        options.store = toWide(raw_.store);
        options.pin = pinSource(*app_.get_subcommand(command.name));
        check(options);
        return options;
    }

    PinSource pinSource(const CLI::App& command) const {
        using Kind = PinSource::Kind;
        const auto given = [&](const char* name) {
            const CLI::Option* option = command.get_option_no_throw(name);
            return option && option->count() != 0;
        };
        if (given("--pin-file"))
            return {Kind::file, toWide(raw_.pinFile)};
        if (given("--pin-stdin"))
            return {Kind::standardInput, {}};
        if (given("--pin-env"))
            return {Kind::environment, toWide(raw_.pinEnvironment)};
        return {};
    }

    static void check(const Options& options) {
        // Without a name the library means every CSP; a line end would break its records.
        if (options.csp.empty())
            throw usage(L"--csp must not be empty");
        if (options.csp.find(L'\n') != std::wstring::npos)
            throw usage(L"--csp must be one line");
        if (options.store.empty())
            throw usage(L"--store must not be empty");
        if (needsToken(options.command) && options.module.empty())
            throw usage(L"--module must not be empty");
    }

    static Failure usage(const std::wstring& complaint) {
        return {ExitCode::usage, complaint + L"; certstoreupdate --help tells more"};
    }

    /// An unknown option is worth more as an explanation than what is missing for it, and the
    /// value behind it, which may be a PIN, is nobody's business.
    Failure usageError(const CLI::ParseError& error) const {
        for (const std::string& argument : app_.remaining(true))
            if (argument.size() > 1 && argument.front() == '-')
                return usage(L"there is no option " +
                             toWide(argument.substr(0, argument.find('='))));
        if (dynamic_cast<const CLI::ExtrasError*>(&error))
            return usage(L"there is an argument too many");
        if (app_.get_subcommands().empty())
            return usage(L"a command is missing or unknown");
        return usage(toWide(error.what()));
    }

    CLI::App app_;
    RawOptions raw_;
};

} // namespace

std::variant<Options, HelpText> parseCommandLine(const std::vector<std::string>& arguments) {
    return Parser().parse(arguments);
}

std::vector<std::string> processArguments() {
    int count = 0;
    const std::unique_ptr<wchar_t*[], decltype(&LocalFree)> arguments(
        CommandLineToArgvW(GetCommandLineW(), &count), LocalFree);
    std::vector<std::string> utf8;
    for (int i = 1; arguments && i < count; ++i)
        utf8.push_back(toUtf8(arguments[static_cast<std::size_t>(i)]));
    return utf8;
}

} // namespace updater
