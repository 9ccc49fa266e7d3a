// What the tests share that run the program with a scripted token.
#pragma once

#include "certbuilder.h"
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

/// A token of a script, and a store of the test's own.
class UpdaterTest : public testing::Test {
protected:
    /// Adds a line to the token's script.
    void line(const std::string& text) { script_ += text + "\n"; }
    /// Forgets the script but for its slot.
    void emptyToken() { script_.clear(); }
    void certificate(const Bytes& encoded, const std::string& id, const std::string& label = "") {
        line("certificate value=" + hex(encoded) + (id.empty() ? "" : " id=" + id) +
             (label.empty() ? "" : " label=" + label));
    }
    void key(const std::string& id) { line("key id=" + id); }
    void certificateWithKey(const Bytes& encoded, const std::string& id,
                            const std::string& label = "") {
        certificate(encoded, id, label);
        key(id);
    }

    /// Runs a command on the token and the test's store.
    Outcome run(const std::wstring& command, const std::vector<std::wstring>& more = {}) {
        std::vector<std::wstring> arguments{command, L"--csp", testCsp, L"--store", store.name()};
        if (command == L"status" || command == L"sync")
            for (const auto& argument : {L"--module", module.c_str(), L"--pin-env", L"TEST_PIN"})
                arguments.emplace_back(argument);
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runWith(arguments);
    }
    Outcome runWith(const std::vector<std::wstring>& arguments, const std::string& input = "") {
        const auto script = folder.write("token.script", slot + "\n" + script_ + recordLine());
        return testsupport::runUpdater(
            {arguments, input, {{L"FAKETOKEN_SCRIPT", script.wstring()}, {L"TEST_PIN", pin}}});
    }

    /// The calls that the token received in all runs so far, each with its answer.
    std::string calls() const {
        std::ifstream file(folder.path() / "calls", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    testsupport::TestStore store;
    testsupport::TestFolder folder;
    std::wstring module = programFolder() + L"faketoken.dll";
    std::string slot = "slot pin=1234";
    std::wstring pin = L"1234";

    static std::wstring programFolder() {
        std::wstring path(32768, L'\0');
        path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
        return path.substr(0, path.find_last_of(L'\\') + 1);
    }

private:
    static std::string hex(const Bytes& bytes) {
        constexpr char digits[] = "0123456789ABCDEF";
        std::string text;
        for (const unsigned char byte : bytes) {
            text += digits[byte >> 4];
            text += digits[byte & 0x0F];
        }
        return text;
    }

    std::string recordLine() const { return "record " + (folder.path() / "calls").string() + "\n"; }

    std::string script_;
};

} // namespace updater
