// How long the program takes for an update, against a program that makes the bare calls:
//   updatebench [CERTIFICATES [REPETITIONS]]
#include "certbuilder.h"
#include "childprocess.h"
#include "installedcsp.h"
#include "printrow.h"
#include "storeview.h"
#include "testfolder.h"
#include "updaterprogram.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace testsupport;

constexpr wchar_t csp[] = L"Benchmark CSP";

std::string scriptFor(int certificates) {
    std::string script = "slot pin=1234\n";
    for (int number = 1; number <= certificates; ++number) {
        const std::string name = "Holder " + std::to_string(number);
        const Bytes encoded = CertBuilder().serialNumber(number).names(name, "Issuer").build();
        const Bytes id{static_cast<unsigned char>(number >> 8),
                       static_cast<unsigned char>(number & 0xFF)};
        script += "certificate value=" + toHex(encoded) + " id=" + toHex(id) + " label=Holder%20" +
                  std::to_string(number) + "\nkey id=" + toHex(id) + "\n";
    }
    return script;
}

class Benchmark {
public:
    Benchmark(int certificates, int repetitions)
        : certificates_(certificates), repetitions_(repetitions) {
        script_ = folder_.write("token.script", scriptFor(certificates)).wstring();
    }

    void run() const {
        const auto emptyStore = [this] { eraseStore(store_); };
        measure("update", "bare calls in a program", emptyStore, [this] { runBareCalls(); });
        measure("update", "certstoreupdater", emptyStore, [this] { runUpdaterCommand(L"sync"); });
        measure(
            "updatenothing", "certstoreupdater", [] {}, [this] { runUpdaterCommand(L"sync"); });
        measure(
            "updatestatus", "certstoreupdater", [] {}, [this] { runUpdaterCommand(L"status"); });
        eraseStore(store_);
    }

private:
    using Action = std::function<void()>;

    void measure(const char* work, const char* contender, const Action& prepare,
                 const Action& action) const {
        for (int i = 0; i != repetitions_; ++i) {
            prepare();
            bench::measure(
                std::string(work) + "/" + contender + "/" + std::to_string(certificates_), action);
        }
    }

    void runBareCalls() const {
        require(runProgram(L"barecalls.exe", start({module(), L"1234", store_, csp})));
    }
    void runUpdaterCommand(const wchar_t* command) const {
        require(runUpdater(start({command, L"--module", module(), L"--allow-unsigned-module",
                                  L"--csp", csp, L"--store", store_, L"--pin-env", L"BENCH_PIN"})));
    }

    Start start(std::vector<std::wstring> arguments) const {
        return {
            std::move(arguments), {}, {{L"FAKETOKEN_SCRIPT", script_}, {L"BENCH_PIN", L"1234"}}};
    }
    static std::wstring module() { return folderOfThisProgram() + L"faketoken.dll"; }
    static void require(const Outcome& outcome) {
        if (outcome.exitCode != 0)
            throw std::runtime_error(outcome.errors);
    }

    InstalledCsp installed_{csp};
    TestFolder folder_;
    std::wstring script_;
    std::wstring store_ = L"CSU-Benchmark";
    int certificates_;
    int repetitions_;
};

} // namespace

int main(int count, char** arguments) {
    try {
        const int certificates = count > 1 ? std::atoi(arguments[1]) : 1000;
        const int repetitions = count > 2 ? std::atoi(arguments[2]) : 5;
        Benchmark(certificates, repetitions).run();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "updatebench: %s\n", error.what());
        return 1;
    }
}
