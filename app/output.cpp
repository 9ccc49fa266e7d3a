// What the program says: data on standard output, for people or as JSON, and messages on standard
// error.
#include "output.h"

#include "text.h"
#include "version.h"

#include <iterator>
#include <utility>

namespace updater {

namespace {

Json toJson(const korv::GenericEvent& event) {
    Json parameters = Json::array();
    for (const auto& [key, value] : event.params())
        parameters.push_back({{"key", toUtf8(toString(key))}, {"value", toUtf8(toString(value))}});
    Json json{{"name", event.what()},
              {"file", toUtf8(toString(event.file()))},
              {"line", event.line()},
              {"parameters", std::move(parameters)}};
    if (event.parent())
        json["cause"] = toJson(*event.parent());
    return json;
}

/// In ASCII: some shells decode a program's output by the console's code page, and a console must
/// not see the control characters that a name may hold.
std::wstring textOf(const Json& json, int indent) {
    return toWide(json.dump(indent, ' ', true)) + L"\n";
}

} // namespace

Output::Output(std::string command, OutputOptions options)
    : options_(options), document_{{"schema", 1},
                                   {"program", "certstoreupdate"},
                                   {"version", version},
                                   {"command", std::move(command)},
                                   {"exitCode", 0},
                                   {"warnings", Json::array()},
                                   {"errors", Json::array()}} {}

void Output::show(std::wstring_view line) const {
    if (!options_.json)
        writeData({{printable(line) + L"\n"}});
}

void Output::show(const Table& table) const {
    if (!options_.json)
        writeData(table.layout(data_.columns()));
}

void Output::report(std::wstring_view line) const {
    if (!options_.quiet)
        show(line);
}

void Output::report(const Table& table) const {
    if (!options_.quiet)
        show(table);
}

void Output::note(std::wstring_view line) const {
    if (!options_.quiet)
        say(line, Colour::plain);
}

void Output::detail(std::wstring_view line) const {
    if (options_.verbose)
        say(line, Colour::faint);
}

void Output::warn(std::wstring_view line) {
    if (!options_.quiet)
        say(L"warning: " + std::wstring(line), Colour::attention);
    Json warning{{"message", toUtf8(line)}};
    if (options_.lines)
        event({{"event", "warning"}, {"warning", std::move(warning)}});
    else
        document_["warnings"].push_back(std::move(warning));
}

void Output::fail(const Failure& failure) {
    say(failure.line(), Colour::bad);
    if (options_.lines) {
        event({{"event", "error"}, {"error", toJson(failure)}});
        return;
    }
    document_["errors"].push_back(toJson(failure));
    if (code_ == ExitCode::done)
        code_ = failure.code();
}

void Output::event(const Json& event) const {
    if (options_.json)
        writeData({{textOf(event, -1)}});
}

ExitCode Output::finish() {
    // What the command did not come to.
    for (auto member = document_.begin(); member != document_.end();)
        member = member->is_null() ? document_.erase(member) : std::next(member);
    if (code_ == ExitCode::done && differs_)
        code_ = ExitCode::different;
    document_["exitCode"] = static_cast<int>(code_);
    if (options_.json && !options_.lines)
        writeData({{textOf(document_, 2)}});
    return code_;
}

bool Output::showsProgress() const noexcept {
    return messages_.isColoured() && !options_.quiet && !options_.json && !options_.verbose;
}

void Output::say(std::wstring_view line, Colour colour) const {
    messages_.write({{L"certstoreupdate: "}, {printable(line), colour}, {L"\n"}});
}

void Output::writeData(Spans spans) const {
    if (!data_.write(std::move(spans)))
        throw Failure(ExitCode::unexpected, L"standard output cannot be written");
}

Json toJson(const Failure& failure) {
    Json json{{"exitCode", static_cast<int>(failure.code())},
              {"family", familyOf(failure.code())},
              {"message", toUtf8(failure.sentence())}};
    if (failure.event())
        json["event"] = toJson(*failure.event());
    return json;
}

} // namespace updater
