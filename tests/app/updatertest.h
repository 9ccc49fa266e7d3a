// What the tests share that run the program with a scripted token.
#pragma once

#include "certbuilder.h"
#include "childprocess.h"
#include "hex.h"
#include "installedcsp.h"
#include "jsonschema.h"
#include "storeview.h"
#include "testfolder.h"
#include "updaterprogram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace updater {

using testsupport::Bytes;
using testsupport::CertBuilder;
using testsupport::KeyProvInfo;
using testsupport::Outcome;
using testsupport::StoreEntry;

inline constexpr wchar_t testCsp[] = L"T\u00EBst CSP";
inline constexpr char testCspUtf8[] = "T\xC3\xABst CSP";

/// A certificate that differs from those of other numbers.
inline Bytes numbered(int number) {
    return CertBuilder()
        .serialNumber(number)
        .names("Holder " + std::to_string(number), "Issuer")
        .build();
}

inline Bytes record(const std::string& container, const std::string& csp = testCspUtf8) {
    return testsupport::fromText(container + "\n" + csp + "\n");
}

/// An entry as the program registers it.
inline StoreEntry registered(const Bytes& encoded, const std::wstring& container,
                             const std::wstring& friendlyName) {
    KeyProvInfo binding;
    binding.container = container;
    binding.provider = testCsp;
    const std::string narrow(container.begin(), container.end());
    return {encoded, binding, testsupport::friendlyNameBytes(friendlyName), record(narrow)};
}

/// An entry of nobody: a certificate and nothing else.
inline StoreEntry bare(const Bytes& encoded) {
    return {encoded, {}, {}, {}};
}

/// Text of which one line, as a whole, matches a regular expression.
MATCHER_P(HasLine, expression, "") {
    std::istringstream lines(arg);
    for (std::string line; std::getline(lines, line);)
        if (std::regex_match(line, std::regex(expression)))
            return true;
    return false;
}

/// Exit code and standard error of a run.
MATCHER_P2(EndsWithCode, code, errors, "") {
    return testing::ExplainMatchResult(code, arg.exitCode, result_listener) &&
           testing::ExplainMatchResult(errors, arg.errors, result_listener);
}

/// What in the program's JSON is not as its documented schema says.
inline std::string violationsOfSchema(const std::string& document) {
    return testsupport::violations(document, CSU_OUTPUT_SCHEMA);
}

/// A token of a script, and a store of the test's own.
class UpdaterTest : public testing::Test {
protected:
    /// Adds a line to the token's script.
    void line(const std::string& text) { script_ += text + "\n"; }
    /// Forgets the script but for its slot.
    void emptyToken() { script_.clear(); }
    void certificate(const Bytes& encoded, const std::string& id, const std::string& label = "") {
        line(certificateStatement(encoded, id, label));
    }
    void key(const std::string& id) { line(keyStatement(id)); }
    static std::string certificateStatement(const Bytes& encoded, const std::string& id,
                                            const std::string& label = "") {
        return "certificate value=" + testsupport::toHex(encoded) +
               (id.empty() ? "" : " id=" + id) + (label.empty() ? "" : " label=" + label);
    }
    static std::string keyStatement(const std::string& id) { return "key id=" + id; }
    void certificateWithKey(const Bytes& encoded, const std::string& id,
                            const std::string& label = "") {
        certificate(encoded, id, label);
        key(id);
    }

    /// Runs a command on the token and the test's store.
    Outcome run(const std::wstring& command, const std::vector<std::wstring>& more = {}) {
        return runWith(commandLine(command, more));
    }
    Outcome runWith(const std::vector<std::wstring>& arguments, const std::string& input = "") {
        return testsupport::runUpdater(start(arguments, input));
    }

    /// What `run` starts the program with.
    std::vector<std::wstring> commandLine(const std::wstring& command,
                                          const std::vector<std::wstring>& more = {}) const {
        std::vector<std::wstring> arguments{command, L"--csp", testCsp, L"--store", store.name()};
        if (command == L"status" || command == L"sync" || command == L"watch") {
            for (const auto& argument : {L"--module", module.c_str(), L"--pin-env", L"TEST_PIN"})
                arguments.emplace_back(argument);
            if (allowUnsignedModule)
                arguments.emplace_back(L"--allow-unsigned-module");
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    testsupport::Start start(const std::vector<std::wstring>& arguments,
                             const std::string& input = "") const {
        const auto script =
            folder.write("token.script", slot + "\n" + script_ + recordLine() + lastLine + "\n");
        return {arguments, input, {{L"FAKETOKEN_SCRIPT", script.wstring()}, {L"TEST_PIN", pin}}};
    }

    /// The calls that the token received in all runs so far, each with its answer.
    std::string calls() const {
        std::ifstream file(folder.path() / "calls");
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    /// How often the token received a call.
    int callsOf(const std::string& function) const {
        std::istringstream lines(calls());
        int count = 0;
        for (std::string text; std::getline(lines, text);)
            count += text.starts_with(function + " ");
        return count;
    }

    std::vector<StoreEntry> seenByOthers() const {
        return testsupport::readStoreInOtherProcess(store.name());
    }

    testsupport::InstalledCsp installedCsp{testCsp};
    testsupport::TestStore store;
    testsupport::TestFolder folder;
    std::wstring module = testsupport::folderOfThisProgram() + L"faketoken.dll";
    bool allowUnsignedModule = true;
    std::string slot = "slot pin=1234";
    /// Of the script, replaced from run to run.
    std::string lastLine;
    std::wstring pin = L"1234";

private:
    std::string recordLine() const { return "record " + (folder.path() / "calls").string() + "\n"; }

    std::string script_;
};

} // namespace updater
