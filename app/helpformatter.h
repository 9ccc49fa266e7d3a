// How --help is laid out.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace updater {

/// Required options stand in the usage, descriptions are broken into lines, and each group has its
/// heading.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter();

    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
    std::string make_option(const CLI::Option* option, bool isPositional) const override;
    std::string make_subcommand(const CLI::App* command) const override;
};

} // namespace updater
