// The command line.
#include "commandline.h"

#include "commandtexts.h"
#include "failures.h"
#include "helpformatter.h"
#include "suggestion.h"
#include "text.h"
#include "version.h"

#include <windows.h>

#include <shellapi.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <string_view>
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

/// An argument up to the end of the option's name: what follows may be a PIN.
std::string optionName(std::string_view argument) {
    const auto isPartOfName = [](char c) {
        return c == '-' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    };
    return {argument.begin(), std::find_if_not(argument.begin(), argument.end(), isPartOfName)};
}

/// What the options are parsed into: UTF-8, as they come.
struct RawOptions {
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    std::string module;
    bool allowUnsignedModule = false;
    std::string csp;
    std::string store = "MY";
    std::string pinFile;
    bool pinStdin = false;
    std::string pinEnvironment;
    bool authorities = false;
    bool others = false;
    bool dryRun = false;
    double interval = 2;
    bool clean = false;
    std::vector<std::string> paths;
    bool recursive = false;
};

/// The name of an option that there is none of, without what may be a PIN that clings to it.
std::string withoutPin(const std::string& argument) {
    constexpr std::string_view pin = "--pin";
    if (argument.starts_with("--"))
        return argument.starts_with(pin) ? std::string(pin) : optionName(argument);
    return optionName(argument).substr(0, 2);
}

constexpr wchar_t wrongInterval[] = L"--interval must be from 0.1 to 86400 seconds";

class Parser {
public:
    Parser() : app_(programSummary, "certstoreupdate") {
        app_.allow_windows_style_options(false);
        app_.require_subcommand(1);
        app_.option_defaults()->disable_flag_override();
        app_.set_help_flag("-h,--help", "Show this help, or that of a command");
        app_.set_version_flag("--version", std::string("certstoreupdate ") + version,
                              "Show the version");
        app_.failure_message([](const CLI::App*, const CLI::Error&) { return std::string(); });
        app_.formatter(std::make_shared<HelpFormatter>());
        app_.footer(
            "\"certstoreupdate COMMAND --help\" tells more about a command and gives "
            "examples.\n\nEnvironment:\n"
            "  NO_COLOR  if it is set and not empty, there are no colours on a console\n\n" +
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
        } catch (const CLI::CallForVersion& asked) {
            return HelpText{toWide(asked.what()) + L"\n"};
        } catch (const CLI::ParseError& error) {
            throw usageError(error);
        }
        return options();
    }

private:
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
        auto* file = command.add_option("--pin-file", raw_.pinFile, "Read the PIN from a file")
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
        command
            .add_option("--store", raw_.store,
                        "System store of the current user; one that does not exist is made")
            ->type_name("NAME")
            ->capture_default_str()
            ->group("Store");
    }

    void addOwnOptions(CLI::App& command, Command kind) {
        if (kind == Command::sync)
            command.add_flag("--dry-run", raw_.dryRun,
                             "Tell what would be changed, and change nothing");
        if (kind == Command::watch) {
            command
                .add_option("--interval", raw_.interval,
                            "From one look at the token to the next, 0.1 to 86400")
                ->type_name("SECONDS")
                ->capture_default_str();
            command.add_flag("--clean", raw_.clean,
                             "Remove what is registered for the CSP when the token leaves");
        }
        if (kind == Command::verify)
            command.add_option("FILE", raw_.paths, "Files")->required();
        if (kind == Command::grant) {
            command.add_option("PATH", raw_.paths, "Files and folders")->required();
            command.add_flag("--recursive", raw_.recursive,
                             "With a folder's contents, two levels down");
        }
    }

    void addOutputOptions(CLI::App& command) {
        constexpr char group[] = "Output";
        command.add_flag("--json", raw_.json, "Data as JSON, for programs")->group(group);
        auto* quiet = command
                          .add_flag("--quiet", raw_.quiet,
                                    "Only what was asked for, and failures; no reports, notes and "
                                    "warnings")
                          ->group(group);
        auto* verbose =
            command.add_flag("--verbose", raw_.verbose, "Also the steps on the way")->group(group);
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
        options.module = toWide(raw_.module);
        options.signing = raw_.allowUnsignedModule ? ModuleFile::Signing::notRequired
                                                   : ModuleFile::Signing::required;
        options.csp = toWide(raw_.csp);
        options.store = toWide(raw_.store);
        options.pin = pinSource(*app_.get_subcommand(command.name));
        options.selection = {raw_.authorities, raw_.others};
        options.dryRun = raw_.dryRun;
        options.interval = interval();
        options.cleanWhenGone = raw_.clean;
        for (const std::string& path : raw_.paths)
            options.paths.push_back(toWide(path));
        options.recursive = raw_.recursive;
        check(options);
        return options;
    }

    std::chrono::milliseconds interval() const {
        // So that what is no number is refused, too.
        if (!(raw_.interval >= 0.1 && raw_.interval <= 86400))
            throw usage(wrongInterval);
        return std::chrono::milliseconds(static_cast<long long>(raw_.interval * 1000));
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

    void check(const Options& options) const {
        if (usesStore(options.command)) {
            // Without a name the library means every CSP; a line end would break its records.
            const bool cspIsGiven =
                app_.get_subcommand(nameOf(options.command))->count("--csp") != 0;
            if (cspIsGiven && options.csp.empty())
                throw usage(L"--csp must not be empty");
            if (options.csp.find(L'\n') != std::wstring::npos)
                throw usage(L"--csp must be one line");
            if (options.store.empty())
                throw usage(L"--store must not be empty");
        }
        if (needsToken(options.command) && options.module.empty())
            throw usage(L"--module must not be empty");
        for (const std::wstring& path : options.paths)
            if (path.empty())
                throw usage(L"a path must not be empty");
    }

    static Failure usage(const std::wstring& complaint, const std::string& command = "") {
        return {ExitCode::usage, complaint + L"; \"certstoreupdate " +
                                     toWide(command.empty() ? "" : command + " ") +
                                     L"--help\" tells more"};
    }

    /// An unknown option is worth more as an explanation than what is missing for it, and the
    /// value behind it, which may be a PIN, is nobody's business.
    Failure usageError(const CLI::ParseError& error) const {
        const auto commands = app_.get_subcommands();
        const CLI::App& context = commands.empty() ? app_ : *commands.front();
        const std::string command = commands.empty() ? "" : context.get_name();
        for (const std::string& argument : app_.remaining(true))
            if (argument.size() > 1 && argument.front() == '-') {
                const std::wstring meant = didYouMean(optionName(argument), optionsOf(context));
                return usage(
                    L"there is no option " +
                        toWide(meant.empty() ? withoutPin(argument) : optionName(argument)) + meant,
                    command);
            }
        if (commands.empty()) {
            const std::vector<std::string> typed = app_.remaining(true);
            if (typed.empty())
                return usage(L"a command is missing");
            // Whatever is no command is not repeated: it may be a PIN.
            return usage(L"there is no such command" + didYouMean(typed.front(), commandNames()));
        }
        if (dynamic_cast<const CLI::ExtrasError*>(&error))
            return usage(L"there is an argument too many", command);
        return usage(complaintAbout(error, context), command);
    }

    /// What is wrong with an option, without repeating its value.
    static std::wstring complaintAbout(const CLI::ParseError& error, const CLI::App& context) {
        const std::string_view text = error.what();
        const std::size_t at = text.find("--");
        const std::string name =
            at == std::string_view::npos ? "--" + optionName(text) : optionName(text.substr(at));
        if (dynamic_cast<const CLI::ConversionError*>(&error))
            return wrongInterval; // the only number
        if (dynamic_cast<const CLI::ExcludesError*>(&error))
            return L"only one of " + toWide(name) + L" and " +
                   toWide(optionName(text.substr(text.rfind("--")))) + L" can be given";
        if (dynamic_cast<const CLI::ArgumentMismatch*>(&error)) {
            const CLI::Option* const option = context.get_option_no_throw(name);
            return toWide(name) + whatIsWrongWithNumberOfValues(option);
        }
        return toWide(text);
    }

    static const wchar_t* whatIsWrongWithNumberOfValues(const CLI::Option* option) {
        if (option && option->get_items_expected_max() == 0)
            return L" takes no value";
        return option && option->count() > 1 ? L" is given more than once" : L" lacks its value";
    }

    static std::wstring didYouMean(const std::string& typed,
                                   const std::vector<std::string>& names) {
        const auto name = nearest(typed, names);
        return name ? L" (did you mean " + toWide(*name) + L"?)" : L"";
    }

    static std::vector<std::string> commandNames() {
        std::vector<std::string> names;
        for (const CommandText& text : commandTexts)
            names.emplace_back(text.name);
        return names;
    }

    static std::vector<std::string> optionsOf(const CLI::App& app) {
        std::vector<std::string> names;
        for (const CLI::Option* option : app.get_options())
            for (const std::string& name : option->get_lnames())
                names.push_back("--" + name);
        return names;
    }

    CLI::App app_;
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
