// Values and paths of a command line, as they were typed.
#include "typedtexts.h"

#include "text.h"
#include "usageerrors.h"

#include <CLI/CLI.hpp>

namespace updater {

namespace {

bool takesValue(const CLI::App& command, const std::string& name) {
    const CLI::Option* const option = command.get_option_no_throw(name);
    return option && option->get_items_expected_max() != 0;
}

} // namespace

std::vector<std::string> TypedTexts::number(const std::vector<std::string>& arguments,
                                            const CLI::App& command) {
    const auto require = [&](bool holds, const std::string& name, const wchar_t* complaint) {
        if (!holds)
            throw usageError(toWide(name) + complaint, command.get_name());
    };
    std::vector<std::string> numbered;
    bool isOption = true;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        const std::size_t sign = argument->find('=');
        const std::string name = argument->substr(0, sign);
        if (isOption && *argument == "--") {
            isOption = false;
        } else if (!isOption || argument->size() < 2 || argument->front() != '-') {
            require(!argument->empty(), "a path", L" must not be empty");
            numbered.push_back(keep(*argument));
        } else if (!takesValue(command, name)) {
            numbered.push_back(*argument);
        } else {
            const bool isJoined = sign != std::string::npos;
            require(isJoined || (std::next(argument) != arguments.end() &&
                                 !std::next(argument)->starts_with("--")),
                    name, L" lacks its value");
            const std::string value = isJoined ? argument->substr(sign + 1) : *++argument;
            require(!value.empty(), name, L" must not be empty");
            numbered.push_back(name);
            numbered.push_back(keep(value));
        }
    }
    return numbered;
}

const std::string& TypedTexts::operator[](const std::string& number) const {
    return texts_[std::stoul(number)];
}

std::string TypedTexts::keep(const std::string& text) {
    texts_.push_back(text);
    return std::to_string(texts_.size() - 1);
}

} // namespace updater
