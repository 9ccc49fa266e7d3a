// A token of SoftHSM in memory.
#include "softtoken.h"

#include "barecryptoki.h"
#include "corpus.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace bench {

namespace {

void* load(CK_FUNCTION_LIST** functions) {
    void* library = dlopen(SoftToken::module().c_str(), RTLD_NOW);
    if (!library)
        throw std::runtime_error("SoftHSM is not there");
    const auto getFunctionList =
        reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
    require(getFunctionList(functions), "C_GetFunctionList");
    return library;
}

CK_SLOT_ID firstSlot(CK_FUNCTION_LIST* token) {
    std::array<CK_SLOT_ID, 8> slots{};
    auto count = static_cast<CK_ULONG>(slots.size());
    require(token->C_GetSlotList(CK_TRUE, slots.data(), &count), "C_GetSlotList");
    return slots.front();
}

CK_SESSION_HANDLE openSession(CK_FUNCTION_LIST* token) {
    CK_SESSION_HANDLE session = 0;
    require(token->C_OpenSession(firstSlot(token), CKF_RW_SESSION | CKF_SERIAL_SESSION, nullptr,
                                 nullptr, &session),
            "C_OpenSession");
    return session;
}

template <class Value>
CK_ATTRIBUTE attribute(CK_ATTRIBUTE_TYPE type, Value& value) {
    return {type, &value, sizeof value};
}
CK_ATTRIBUTE attribute(CK_ATTRIBUTE_TYPE type, Octets& octets) {
    return {type, octets.data(), static_cast<CK_ULONG>(octets.size())};
}

Octets octetsOf(std::string_view text) {
    return Octets(text.begin(), text.end());
}

class Filler {
public:
    Filler(CK_FUNCTION_LIST* token, CK_SESSION_HANDLE session) : token_(token), session_(session) {}

    void add(std::size_t number, Der certificate) {
        Octets id(20, 0xA5);
        for (std::size_t i = 0; i != 4; ++i)
            id[i] = static_cast<unsigned char>(number >> 8 * i);
        addCertificate(certificate, id,
                       octetsOf("Certificate of holder " + std::to_string(number)));
        addKey(id);
    }

private:
    void addCertificate(Der certificate, Octets& id, Octets label) {
        CK_OBJECT_CLASS kind = CKO_CERTIFICATE;
        CK_CERTIFICATE_TYPE x509 = CKC_X_509;
        Octets subject{0x30, 0x00}; // SoftHSM wants one and does not look at it
        Octets value(certificate.begin(), certificate.end());
        std::array attributes{
            attribute(CKA_CLASS, kind),      attribute(CKA_CERTIFICATE_TYPE, x509),
            attribute(CKA_TOKEN, yes_),      attribute(CKA_PRIVATE, no_),
            attribute(CKA_SUBJECT, subject), attribute(CKA_ID, id),
            attribute(CKA_LABEL, label),     attribute(CKA_VALUE, value)};
        CK_OBJECT_HANDLE object = 0;
        require(token_->C_CreateObject(session_, attributes.data(), attributes.size(), &object),
                "C_CreateObject");
    }

    void addKey(Octets& id) {
        Octets curve{0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07}; // P-256
        CK_MECHANISM mechanism{CKM_EC_KEY_PAIR_GEN, nullptr, 0};
        std::array publicKey{attribute(CKA_TOKEN, no_), attribute(CKA_EC_PARAMS, curve)};
        std::array privateKey{attribute(CKA_TOKEN, yes_), attribute(CKA_PRIVATE, yes_),
                              attribute(CKA_SIGN, yes_), attribute(CKA_ID, id)};
        CK_OBJECT_HANDLE handles[2] = {};
        require(token_->C_GenerateKeyPair(session_, &mechanism, publicKey.data(), publicKey.size(),
                                          privateKey.data(), privateKey.size(), &handles[0],
                                          &handles[1]),
                "C_GenerateKeyPair");
    }

    CK_FUNCTION_LIST* token_;
    CK_SESSION_HANDLE session_;
    CK_BBOOL yes_ = CK_TRUE;
    CK_BBOOL no_ = CK_FALSE;
};

void initialise(CK_FUNCTION_LIST* token) {
    Octets officer = octetsOf("security officer");
    Octets label(32, ' ');
    Octets pin = octetsOf(SoftToken::pin);
    require(token->C_InitToken(firstSlot(token), officer.data(), officer.size(), label.data()),
            "C_InitToken");
    const CK_SESSION_HANDLE session = openSession(token);
    require(token->C_Login(session, CKU_SO, officer.data(), officer.size()), "C_Login");
    require(token->C_InitPIN(session, pin.data(), pin.size()), "C_InitPIN");
    require(token->C_Logout(session), "C_Logout");
    require(token->C_Login(session, CKU_USER, pin.data(), pin.size()), "C_Login");
}

} // namespace

std::string SoftToken::module() {
    return BENCH_SOFTHSM;
}

SoftToken::SoftToken(std::size_t certificates) {
    // In memory: a disk would be measured otherwise.
    std::string pattern = "/dev/shm/bench-token-XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("no folder for a token");
    folder_ = pattern;
    std::filesystem::create_directory(folder_ / "tokens");
    std::ofstream(folder_ / "softhsm2.conf")
        << "directories.tokendir = " << (folder_ / "tokens").string()
        << "\nobjectstore.backend = file\nlog.level = ERROR\n";
    select();
    CK_FUNCTION_LIST* token = nullptr;
    void* const library = load(&token);
    require(token->C_Initialize(nullptr), "C_Initialize");
    initialise(token);
    Filler filler(token, openSession(token));
    Cycle cycle;
    for (std::size_t i = 0; i != certificates; ++i)
        filler.add(i, cycle.next());
    require(token->C_Finalize(nullptr), "C_Finalize");
    dlclose(library);
}

SoftToken::~SoftToken() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void SoftToken::select() const {
    setenv("SOFTHSM2_CONF", (folder_ / "softhsm2.conf").c_str(), 1);
}

OwnSession::OwnSession() : library_(load(&functions_)), handle_(openSession(functions_)) {}

OwnSession::~OwnSession() {
    functions_->C_CloseSession(handle_);
    dlclose(library_);
}

} // namespace bench
