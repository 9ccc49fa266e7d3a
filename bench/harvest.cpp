// Reading a token's certificates, against the calls that it takes.
#include "barecryptoki.h"
#include "comparison.h"
#include "memorytoken.h"
#include "pkcs11helper.h"

#include <cstdlib>
#include <map>
#include <memory>

namespace bench {

namespace {

using pkcs11::certstoreupdater::CertListPackage;
using pkcs11::certstoreupdater::Pkcs11Helper;

/// Made at the first use and kept: making a token takes longer than reading it.
MemoryToken& tokenOf(std::size_t certificates) {
    static std::map<std::size_t, MemoryToken> tokens;
    return tokens.try_emplace(certificates, certificates).first->second;
}

std::size_t sizeOf(const CertListPackage& all) {
    return all.selfSignedCerts.size() + all.caCerts.size() + all.certsWithPrivateKey.size() +
           all.otherCerts.size();
}

/// The library and the bare calls in one process, logged in once.
class Reader {
public:
    explicit Reader(std::size_t certificates) : helper_(moduleWith(certificates)) {
        const std::string pin = MemoryToken::pin;
        helper_.login({reinterpret_cast<const unsigned char*>(pin.data()), pin.size()});
        own_ = std::make_unique<OwnSession>();
    }
    // The module must be there as long as the other session.
    ~Reader() noexcept(false) { own_.reset(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    std::size_t readWithLibrary() const { return sizeOf(*helper_.getAllCerts()); }
    std::size_t readBare() const {
        return harvestBare(own_->functions(), own_->handle()).certificates.size();
    }

private:
    static std::string moduleWith(std::size_t certificates) {
        tokenOf(certificates).select();
        return MemoryToken::module();
    }

    Pkcs11Helper helper_;
    std::unique_ptr<OwnSession> own_;
};

template <class Read>
void addReading(const char* contender, std::size_t certificates, Read read) {
    const std::string name =
        std::string("harvest/") + contender + "/" + std::to_string(certificates);
    benchmark::RegisterBenchmark(name.c_str(), [certificates, read](benchmark::State& state) {
        const Reader reader(certificates);
        for ([[maybe_unused]] auto _ : state)
            if (read(reader) != certificates)
                state.SkipWithError("certificates are missing");
    });
}

/// By the clock: a program's time is not this process's.
void addProgram(const char* contender, const std::string& command, std::size_t certificates) {
    const std::string name =
        std::string("readtoken/") + contender + "/" + std::to_string(certificates);
    const std::string silent = command + " >/dev/null 2>&1";
    benchmark::RegisterBenchmark(name.c_str(), [certificates, silent](benchmark::State& state) {
        tokenOf(certificates).select();
        for ([[maybe_unused]] auto _ : state)
            if (std::system(silent.c_str()) != 0)
                state.SkipWithError("the program failed");
    })->UseRealTime();
}

void addPrograms(std::size_t certificates) {
    const std::string module = MemoryToken::module();
    const std::string pin = MemoryToken::pin;
    addProgram(library, BENCH_READTOKEN " " + module + " " + pin, certificates);
    addProgram("p11tool",
               "p11tool --provider=" + module + " --login --set-pin=" + pin + " --list-all-certs",
               certificates);
    addProgram("pkcs11-tool",
               "pkcs11-tool --module " + module + " --login --pin " + pin +
                   " --list-objects --type cert",
               certificates);
}

} // namespace

void addHarvesting() {
    for (const std::size_t certificates : {20u, 100u, 1'000u}) {
        addReading(library, certificates,
                   [](const Reader& reader) { return reader.readWithLibrary(); });
        addReading("bare Cryptoki calls", certificates,
                   [](const Reader& reader) { return reader.readBare(); });
    }
    for (const std::size_t certificates : {20u, 100u, 1'000u})
        addPrograms(certificates);
}

} // namespace bench
