// The command line.
#include "commandline.h"

#include "commandtexts.h"
#include "helpformatter.h"
#include "text.h"
#include "typedtexts.h"
#include "usageerrors.h"
#include "version.h"

#include <windows.h>

#include <shellapi.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <memory>
#include <utility>

namespace updater {

namespace {

bool needsToken(Command command) {
    return command == Command::status || command == Command::sync || command == Command::watch;
}

bool usesStore(Command command) {
    return needsToken(command) || command == Command::list || command == Command::clean;
}

const CommandText& textOf(Command command) {
    return *std::find_if(std::begin(commandTexts), std::end(commandTexts),
                         [=](const CommandText& text) { return text.command == command; });
}

std::string indented(const std::string& lines) {
    std::string text = "  ";
    for (const char c : lines)
        text += c == '\n' ? std::string("\n  ") : std::string(1, c);
    return text;
}

/// What the options are parsed into: of each text its number.
struct RawOptions {
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    std::string module;
    bool allowUnsignedModule = false;
    std::string csp;
    bool allowMissingCsp = false;
    std::string store;
    std::string pinFile;
    bool pinStdin = false;
    std::string pinEnvironment;
    bool authorities = false;
    bool others = false;
    bool dryRun = false;
    bool exitCode = false;
    std::string interval;
    bool clean = false;
    std::vector<std::string> paths;
    bool recursive = false;
};

bool isCommand(const std::string& argument) {
    return std::any_of(std::begin(commandTexts), std::end(commandTexts),
                       [&](const CommandText& text) { return argument == text.name; });
}

/// What people of Windows type for --help.
std::string translated(const std::string& argument) {
    return argument == "/?" ? "--help" : argument;
}

class Parser {
public:
    Parser() : app_(programSummary, "certstoreupdate") {
        app_.allow_windows_style_options(false);
        app_.require_subcommand(1);
        app_.option_defaults()->disable_flag_override();
        app_.set_help_flag("-h,--help", "Show this help, or that of a command");
        app_.set_version_flag("-V,--version", std::string("certstoreupdate ") + version,
                              "Show the version");
        app_.failure_message([](const CLI::App*, const CLI::Error&) { return std::string(); });
        app_.formatter(std::make_shared<HelpFormatter>());
        app_.footer("\"certstoreupdate COMMAND --help\" tells more about a command and gives "
                    "examples.\n\nEnvironment:\n"
                    "  NO_COLOR  if it is set and not empty, nothing is coloured\n\n" +
                    exitCodeHelp());
        for (const CommandText& text : commandTexts)
            addCommand(text);
    }

    std::variant<Options, HelpText> parse(const std::vector<std::string>& arguments) {
        std::vector<std::string> forParser = argumentsForParser(arguments);
        std::reverse(forParser.begin(), forParser.end());
        try {
            app_.parse(std::move(forParser));
        } catch (const CLI::CallForHelp&) {
            return HelpText{toWide(app_.help())};
        } catch (const CLI::CallForVersion& asked) {
            return HelpText{toWide(asked.what()) + L"\n"};
        } catch (const CLI::ParseError& error) {
            throw usageError(error, app_);
        }
        return options();
    }

private:
    std::vector<std::string> argumentsForParser(std::vector<std::string> arguments) {
        std::transform(arguments.begin(), arguments.end(), arguments.begin(), translated);
        if (!arguments.empty() && arguments.front() == "help") {
            arguments.erase(arguments.begin());
            if (arguments.empty() || isCommand(arguments.front()))
                arguments.push_back("--help");
        }
        if (arguments.empty())
            return arguments;
        const std::string& command = arguments.front();
        if (!isCommand(command)) {
            checkOrder(arguments);
            return arguments;
        }
        std::vector<std::string> forParser =
            texts_.number({arguments.begin() + 1, arguments.end()}, *app_.get_subcommand(command));
        forParser.insert(forParser.begin(), command);
        return forParser;
    }

    /// An option of a command may have been typed in front of it.
    void checkOrder(const std::vector<std::string>& arguments) const {
        const std::string name = arguments.front().substr(0, arguments.front().find('='));
        const auto command = std::find_if(arguments.begin(), arguments.end(), isCommand);
        if (command != arguments.end() && !app_.get_option_no_throw(name) &&
            app_.get_subcommand(*command)->get_option_no_throw(name))
            throw usageError(toWide(name) + L" must come after the command: certstoreupdate " +
                                 toWide(*command) + L" " + toWide(name),
                             *command);
    }
    void addCommand(const CommandText& text) {
        CLI::App* command = app_.add_subcommand(text.name, text.summary)->group("Commands");
        if (needsToken(text.command))
            addTokenOptions(*command);
        if (usesStore(text.command))
            addStoreOptions(*command, text.command);
        addOwnOptions(*command, text.command);
        addOutputOptions(*command);

        std::string details = text.details;
        if (needsToken(text.command))
            details += std::string("\n\n") + pinHelp + "\n\n" + moduleHelp;
        command->footer(details + "\n\nExamples:\n" + indented(text.examples));
    }

    void addTokenOptions(CLI::App& command) {
        command
            .add_option("--module", raw_.module,
                        "The token's PKCS#11 module. A name without a folder is looked for beside "
                        "this program and in the system's folder only")
            ->type_name("FILE")
            ->required()
            ->group("Token");
        command
            .add_flag("--allow-unsigned-module", raw_.allowUnsignedModule,
                      "Load the module even if Windows does not trust its signature")
            ->group("Token");
        auto* file = command
                         .add_option("--pin-file", raw_.pinFile,
                                     "Read the PIN from a file; - is standard input")
                         ->type_name("FILE")
                         ->group("Token");
        auto* input =
            command.add_flag("--pin-stdin", raw_.pinStdin, "Read the PIN from standard input")
                ->group("Token");
        auto* environment = command
                                .add_option("--pin-env", raw_.pinEnvironment,
                                            "Take the PIN from an environment variable")
                                ->type_name("NAME")
                                ->group("Token");
        file->excludes(input)->excludes(environment);
        input->excludes(environment);
        command.add_flag("--ca", raw_.authorities, "Include certificates of authorities")
            ->group("Token");
        command
            .add_flag("--other", raw_.others,
                      "Include certificates that are neither self-signed nor an authority's")
            ->group("Token");
    }

    void addStoreOptions(CLI::App& command, Command kind) {
        auto* csp = command
                        .add_option("--csp", raw_.csp,
                                    kind == Command::list
                                        ? "Name of one CSP; without it, all that are installed"
                                        : "Name of the CSP that serves the token's keys")
                        ->type_name("NAME")
                        ->group("Store");
        if (kind != Command::list)
            csp->required();
        if (kind == Command::sync || kind == Command::watch)
            command
                .add_flag("--allow-missing-csp", raw_.allowMissingCsp,
                          "Register for the CSP even if it is not installed")
                ->group("Store");
        command
            .add_option("--store", raw_.store,
                        "System store of the current user; created if it does not exist")
            ->type_name("NAME")
            ->default_str("MY")
            ->group("Store");
    }

    void addOwnOptions(CLI::App& command, Command kind) {
        CLI::Option* dryRun = nullptr;
        if (kind == Command::sync || kind == Command::clean)
            dryRun = command.add_flag("-n,--dry-run", raw_.dryRun,
                                      "Show what would be changed, and change nothing");
        if (kind == Command::status)
            command.add_flag("--exit-code", raw_.exitCode, "End with 12 if something differs");
        if (kind == Command::sync)
            command
                .add_flag("--exit-code", raw_.exitCode,
                          "With --dry-run: end with 12 if something would be changed")
                ->needs(dryRun);
        if (kind == Command::watch) {
            command
                .add_option("--interval", raw_.interval,
                            "Time between two looks at the token, 0.1 to 86400")
                ->type_name("SECONDS")
                ->default_str("2");
            command.add_flag("--clean", raw_.clean,
                             "Remove what is registered for the CSP when the token leaves");
        }
        if (kind == Command::verify)
            command.add_option("FILE", raw_.paths, "Files")->required();
        if (kind == Command::grant) {
            command.add_option("PATH", raw_.paths, "Files and folders")->required();
            command.add_flag("--recursive", raw_.recursive,
                             "Also a folder's contents, two levels down");
        }
    }

    void addOutputOptions(CLI::App& command) {
        constexpr char group[] = "Output";
        command.add_flag("--json", raw_.json, "Data as JSON, for programs")->group(group);
        auto* quiet = command
                          .add_flag("-q,--quiet", raw_.quiet,
                                    "Only what was asked for, and failures; no reports, notes and "
                                    "warnings")
                          ->group(group);
        auto* verbose = command.add_flag("-v,--verbose", raw_.verbose, "Also the steps on the way")
                            ->group(group);
        quiet->excludes(verbose);
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
        options.output = {.json = raw_.json,
                          .lines = command.command == Command::watch,
                          .quiet = raw_.quiet,
                          .verbose = raw_.verbose};
        takeText(options.module, raw_.module);
        options.signing = raw_.allowUnsignedModule ? ModuleFile::Signing::notRequired
                                                   : ModuleFile::Signing::required;
        takeText(options.csp, raw_.csp);
        options.allowMissingCsp = raw_.allowMissingCsp;
        takeText(options.store, raw_.store);
        options.pin = pinSource(*app_.get_subcommand(command.name));
        options.selection = {raw_.authorities, raw_.others};
        options.dryRun = raw_.dryRun;
        options.exitCode = raw_.exitCode;
        if (!raw_.interval.empty())
            options.interval = intervalOf(texts_[raw_.interval]);
        options.cleanWhenGone = raw_.clean;
        for (const std::string& path : raw_.paths)
            options.paths.push_back(toWide(texts_[path]));
        options.recursive = raw_.recursive;
        // A line end would break the records of the library.
        if (options.csp.find(L'\n') != std::wstring::npos)
            throw usageError(L"--csp must be one line", command.name);
        return options;
    }

    /// \param number empty if nothing was typed
    void takeText(std::wstring& text, const std::string& number) const {
        if (!number.empty())
            text = toWide(texts_[number]);
    }

    static std::chrono::milliseconds intervalOf(const std::string& text) {
        double seconds = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
        // What is no number is not between the limits either.
        if (error != std::errc() || end != text.data() + text.size() ||
            !(seconds >= 0.1 && seconds <= 86400))
            throw usageError(L"--interval must be from 0.1 to 86400 seconds",
                             nameOf(Command::watch));
        return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
    }

    PinSource pinSource(const CLI::App& command) const {
        using Kind = PinSource::Kind;
        const auto given = [&](const char* name) {
            const CLI::Option* option = command.get_option_no_throw(name);
            return option && option->count() != 0;
        };
        if (given("--pin-file") && texts_[raw_.pinFile] != "-")
            return {Kind::file, toWide(texts_[raw_.pinFile])};
        if (given("--pin-file") || given("--pin-stdin"))
            return {Kind::standardInput, {}};
        if (given("--pin-env"))
            return {Kind::environment, toWide(texts_[raw_.pinEnvironment])};
        return {};
    }

    CLI::App app_;
    TypedTexts texts_;
    RawOptions raw_;
};

} // namespace

std::variant<Options, HelpText> parseCommandLine(const std::vector<std::string>& arguments) {
    return Parser().parse(arguments);
}

OutputOptions outputAskedFor(const std::vector<std::string>& arguments) {
    OutputOptions output;
    output.json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    output.lines = !arguments.empty() && arguments.front() == nameOf(Command::watch);
    return output;
}

const char* nameOf(Command command) {
    return textOf(command).name;
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
