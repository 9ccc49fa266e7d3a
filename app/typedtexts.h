// Values and paths of a command line, as they were typed.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace updater {

/// Keeps what a user typed from being read as anything else. To the parser a text may be a list
/// ("[a,b]") or the end of a command ("++"), and after an option with an empty value ("--csp=")
/// the next argument would be that value. So it is given a number in place of each text.
class TypedTexts {
public:
    /// The arguments with numbers for the values of options and for paths.
    /// \param arguments those behind a command
    /// \throws Failure (usage) for a text that is empty, and for an option whose value is missing:
    ///   one that begins with "--" has to be joined to the option by "="
    std::vector<std::string> number(const std::vector<std::string>& arguments,
                                    const CLI::App& command);

    /// The text with a number that `number` gave.
    const std::string& operator[](const std::string& number) const;

private:
    std::string keep(const std::string& text);

    std::vector<std::string> texts_;
};

} // namespace updater
