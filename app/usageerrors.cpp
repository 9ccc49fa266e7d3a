// What is wrong with a command line, in words.
#include "usageerrors.h"

#include "commandtexts.h"
#include "suggestion.h"
#include "text.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace updater {

namespace {

/// An argument up to the end of the option's name: what follows may be a PIN.
std::string optionName(std::string_view argument) {
    const auto isPartOfName = [](char c) {
        return c == '-' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    };
    return {argument.begin(), std::find_if_not(argument.begin(), argument.end(), isPartOfName)};
}

/// The name of an option that does not exist, without what may be a PIN attached to it.
std::string withoutPin(const std::string& argument) {
    constexpr std::string_view pin = "--pin";
    std::string beginning = argument.substr(0, pin.size());
    if (CLI::detail::to_lower(beginning) == pin)
        return beginning;
    return optionName(argument).substr(0, argument.starts_with("--") ? std::string::npos : 2);
}

std::wstring didYouMean(const std::string& typed, const std::vector<std::string>& names) {
    const auto name = nearest(typed, names);
    return name ? L" (did you mean " + toWide(*name) + L"?)" : L"";
}

std::vector<std::string> commandNames() {
    std::vector<std::string> names;
    for (const CommandText& text : commandTexts)
        names.emplace_back(text.name);
    return names;
}

std::vector<std::string> optionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

const wchar_t* whatIsWrongWithNumberOfValues(const CLI::Option* option) {
    if (option && option->get_items_expected_max() == 0)
        return L" takes no value";
    return option && option->count() > 1 ? L" is given more than once" : L" lacks its value";
}

/// What is wrong with an option, without repeating its value.
std::wstring complaintAbout(const CLI::ParseError& error, const CLI::App& context) {
    const std::string_view text = error.what();
    const std::size_t at = text.find("--");
    const std::string name =
        at == std::string_view::npos ? "--" + optionName(text) : optionName(text.substr(at));
    if (dynamic_cast<const CLI::ExcludesError*>(&error))
        return L"only one of " + toWide(name) + L" and " +
               toWide(optionName(text.substr(text.rfind("--")))) + L" can be given";
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error)) {
        const CLI::Option* const option = context.get_option_no_throw(name);
        return toWide(name) + whatIsWrongWithNumberOfValues(option);
    }
    return toWide(text);
}

/// \returns an argument that looks like an option but is none; empty if there is none
std::string unknownOption(const std::vector<std::string>& notUnderstood) {
    const auto found =
        std::find_if(notUnderstood.begin(), notUnderstood.end(), [](const std::string& argument) {
            return argument.size() > 1 && argument[0] == '-';
        });
    return found == notUnderstood.end() ? std::string() : *found;
}

} // namespace

Failure usageError(const std::wstring& complaint, const std::string& command) {
    return {ExitCode::usage, complaint + L"; \"certstoreupdate " +
                                 toWide(command.empty() ? "" : command + " ") +
                                 L"--help\" tells more"};
}

Failure usageError(const CLI::ParseError& error, const CLI::App& app) {
    const auto commands = app.get_subcommands();
    const CLI::App& context = commands.empty() ? app : *commands.front();
    const std::string command = commands.empty() ? "" : context.get_name();
    const std::vector<std::string> notUnderstood = app.remaining(true);
    // It explains more than what is missing because of it.
    if (const std::string option = unknownOption(notUnderstood); !option.empty())
        return usageError(L"there is no option " + toWide(withoutPin(option)) +
                              didYouMean(optionName(option), optionsOf(context)),
                          command);
    if (commands.empty())
        return usageError(notUnderstood.empty()
                              ? L"a command is missing"
                              : L"there is no such command" +
                                    didYouMean(notUnderstood.front(), commandNames()));
    if (dynamic_cast<const CLI::ExtrasError*>(&error))
        return usageError(L"there is one argument too many", command);
    return usageError(complaintAbout(error, context), command);
}

} // namespace updater
