// A token of SoftHSM in memory.
#include "memorytoken.h"

#include "barecryptoki.h"
#include "corpus.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace bench {

namespace {

Octets idOf(std::size_t number) {
    Octets id(20, 0xA5);
    for (std::size_t i = 0; i != 4; ++i)
        id[i] = static_cast<unsigned char>(number >> 8 * i);
    return id;
}

void fill(testsupport::SoftTokenEditor& token, std::size_t certificates) {
    Cycle cycle;
    for (std::size_t i = 0; i != certificates; ++i) {
        const Der certificate = cycle.next();
        token.addCertificate({certificate.begin(), certificate.end()}, idOf(i),
                             "Certificate of holder " + std::to_string(i));
        token.addKey(idOf(i));
    }
}

} // namespace

MemoryFolder::MemoryFolder() {
    // A token on a disk would have the disk measured.
    std::string pattern = "/dev/shm/bench-token-XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("no folder for a token");
    path_ = pattern;
}

MemoryFolder::~MemoryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string MemoryToken::module() {
    return BENCH_SOFTHSM;
}

MemoryToken::MemoryToken(std::size_t certificates) : token_(folder_.path(), module(), pin) {
    token_.edit([&](testsupport::SoftTokenEditor& editor) { fill(editor, certificates); });
}

OwnSession::OwnSession() : library_(dlopen(MemoryToken::module().c_str(), RTLD_NOW)) {
    if (!library_)
        throw std::runtime_error("SoftHSM is not there");
    const auto getFunctionList =
        reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_, "C_GetFunctionList"));
    if (!getFunctionList)
        throw std::runtime_error("SoftHSM is no PKCS #11 module");
    require(getFunctionList(&functions_), "C_GetFunctionList");
    std::array<CK_SLOT_ID, 8> slots{};
    auto count = static_cast<CK_ULONG>(slots.size());
    require(functions_->C_GetSlotList(CK_TRUE, slots.data(), &count), "C_GetSlotList");
    require(functions_->C_OpenSession(slots.front(), CKF_RW_SESSION | CKF_SERIAL_SESSION, nullptr,
                                      nullptr, &handle_),
            "C_OpenSession");
}

OwnSession::~OwnSession() {
    functions_->C_CloseSession(handle_);
    dlclose(library_);
}

} // namespace bench
