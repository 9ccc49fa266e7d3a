// What the program says: data on standard output, for people or as JSON, and messages on standard
// error.
#pragma once

#include "console.h"
#include "failures.h"
#include "table.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace updater {

using Json = nlohmann::ordered_json;

struct OutputOptions {
    bool json = false;    ///< data as JSON, nothing for people on standard output
    bool lines = false;   ///< of a command without an end: JSON as a line for each event
    bool quiet = false;   ///< no reports, notes and warnings
    bool verbose = false; ///< details
};

/// Every function throws Failure if standard output cannot be written.
class Output {
public:
    /// \param command the command's name, for the JSON document
    Output(std::string command, OutputOptions options);

    // For people; nothing of it is written with --json.

    /// What was asked for.
    void show(std::wstring_view line) const;
    void show(const Table& table) const;
    /// What was done; not with --quiet.
    void report(std::wstring_view line) const;
    void report(const Table& table) const;

    // On standard error; warnings and failures stand in the JSON document too.

    /// What helps to understand the data; not with --quiet.
    void note(std::wstring_view line) const;
    /// A step on the way; only with --verbose.
    void detail(std::wstring_view line) const;
    /// What may go wrong later; not with --quiet.
    void warn(std::wstring_view line);
    /// What went wrong. The first failure gives the program its exit code, unless the command has
    /// no end and goes on.
    void fail(const Failure& failure);

    /// Store and token differ: if nothing fails, the exit code says so.
    void noteDifference() noexcept { differs_ = true; }

    // For programs.

    /// A member of the JSON document, which `finish` writes; one that stays null is left out.
    Json& member(const char* name) { return document_[name]; }
    /// A line at once; for commands that have no end.
    void event(const Json& event) const;

    /// Writes the JSON document, if there is to be one.
    /// \returns the exit code
    ExitCode finish();

    /// Whether a bar that shows progress would be seen and disturb nothing.
    bool showsProgress() const noexcept;

private:
    void say(std::wstring_view line, Colour colour) const;
    void writeData(Spans spans) const;

    OutputOptions options_;
    Stream data_ = Stream::standardOutput();
    Stream messages_ = Stream::standardError();
    ExitCode code_ = ExitCode::done;
    bool differs_ = false;
    Json document_;
};

/// A failure with all that is known of its event: file, line, parameters, and what led to it.
Json toJson(const Failure& failure);

} // namespace updater
