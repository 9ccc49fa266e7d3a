// How --help is laid out.
#include "helpformatter.h"

#include <cstddef>
#include <string_view>
#include <utility>

namespace updater {

namespace {

constexpr std::size_t nameColumns = 28;
constexpr std::size_t lineColumns = 96;

/// A line for a name and what it means; where that is too long, more lines under it.
std::string entry(const std::string& name, std::string_view meaning) {
    std::string text = "  " + name;
    std::size_t column = text.size();
    if (column + 2 > nameColumns) {
        text += '\n';
        column = 0;
    }
    while (true) {
        text.append(nameColumns - column, ' ');
        const std::size_t room = lineColumns - nameColumns;
        if (meaning.size() <= room)
            break;
        const std::size_t blank = meaning.rfind(' ', room);
        const bool isWord = blank == std::string_view::npos;
        text.append(meaning.substr(0, isWord ? room : blank)).append("\n");
        meaning.remove_prefix(isWord ? room : blank + 1);
        column = 0;
    }
    return text.append(meaning).append("\n");
}

std::string withValue(const CLI::Option& option, const std::string& name) {
    return option.get_type_size() == 0 ? name : name + " " + option.get_type_name();
}

/// Such as "-q, --quiet".
std::string allNames(const CLI::Option& option) {
    return CLI::detail::find_and_replace(option.get_name(false, true), ",", ", ");
}

} // namespace

HelpFormatter::HelpFormatter() {
    label("Positionals", "Arguments");
}

std::string HelpFormatter::make_usage(const CLI::App* app, std::string name) const {
    std::string usage = "\nUsage: " + name;
    for (const CLI::Option* const option : app->get_options())
        if (option->get_required() && option->nonpositional())
            usage += " " + withValue(*option, option->get_name());
    for (const CLI::Option* const option : app->get_options())
        if (option->get_positional())
            usage += " " + make_option_usage(option);
    usage += app->get_require_subcommand_min() > 0 ? " COMMAND" : "";
    return usage + " [OPTIONS]\n";
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode mode) const {
    // One empty line between groups is enough.
    return CLI::detail::find_and_replace(Formatter::make_help(app, std::move(name), mode), "\n\n\n",
                                         "\n\n");
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool isPositional) const {
    std::string meaning = option->get_description();
    if (!option->get_default_str().empty())
        meaning += " (" + option->get_default_str() + ")";
    return entry(isPositional ? option->get_name(true, false)
                              : withValue(*option, allNames(*option)),
                 meaning);
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
    return entry(command->get_name(), command->get_description());
}

} // namespace updater
