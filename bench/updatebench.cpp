// How long the program takes for an update, against a program that makes the bare calls:
//   updatebench [CERTIFICATES [REPETITIONS]]
#include "certbuilder.h"
#include "childprocess.h"
#include "installedcsp.h"
#include "storeview.h"
#include "testfolder.h"
#include "updaterprogram.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace testsupport;

constexpr wchar_t csp[] = L"Benchmark CSP";

std::string hex(const Bytes& bytes) {
    std::string text;
    for (const unsigned char byte : bytes)
        for (const int digit : {byte >> 4, byte & 0x0F})
            text += "0123456789ABCDEF"[digit];
    return text;
}

std::string scriptFor(int certificates) {
    std::string script = "slot pin=1234\n";
    for (int number = 1; number <= certificates; ++number) {
        const std::string name = "Holder " + std::to_string(number);
        const Bytes encoded = CertBuilder().serialNumber(number).names(name, "Issuer").build();
        const Bytes id{static_cast<unsigned char>(number >> 8),
                       static_cast<unsigned char>(number & 0xFF)};
        script += "certificate value=" + hex(encoded) + " id=" + hex(id) + " label=Holder%20" +
                  std::to_string(number) + "\nkey id=" + hex(id) + "\n";
    }
    return script;
}

class Benchmark {
public:
    Benchmark(int certificates, int repetitions) : repetitions_(repetitions) {
        script_ = folder_.write("token.script", scriptFor(certificates)).wstring();
    }

    void run() const {
        std::printf("%-28s %10s %10s %10s  %s\n", "", "median ms", "least", "most", "ratio");
        const double bare = measure(
            "the bare calls", [this] { runBareCalls(); }, [this] { eraseStore(store_); }, 0);
        measure(
            "certstoreupdate sync", [this] { runUpdaterCommand(L"sync"); },
            [this] { eraseStore(store_); }, bare);
        measure(
            "sync with nothing to do", [this] { runUpdaterCommand(L"sync"); }, [] {}, bare);
        measure(
            "status", [this] { runUpdaterCommand(L"status"); }, [] {}, bare);
        eraseStore(store_);
    }

private:
    using Action = std::function<void()>;

    double measure(const char* name, const Action& action, const Action& prepare,
                   double bare) const {
        std::vector<double> times;
        for (int i = 0; i != repetitions_; ++i) {
            prepare();
            const auto start = std::chrono::steady_clock::now();
            action();
            times.push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                    .count());
        }
        std::sort(times.begin(), times.end());
        const double median = times[times.size() / 2];
        std::printf("%-28s %10.0f %10.0f %10.0f", name, median, times.front(), times.back());
        if (bare > 0)
            std::printf("  %.2f", median / bare);
        std::printf("\n");
        return median;
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
    int repetitions_;
};

} // namespace

int main(int count, char** arguments) {
    try {
        const int certificates = count > 1 ? std::atoi(arguments[1]) : 1000;
        const int repetitions = count > 2 ? std::atoi(arguments[2]) : 5;
        std::printf("%d certificates, each row a process of its own, %d times\n", certificates,
                    repetitions);
        Benchmark(certificates, repetitions).run();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "updatebench: %s\n", error.what());
        return 1;
    }
}
