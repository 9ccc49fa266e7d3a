// A token of SoftHSM, made and changed through its PKCS #11 module.
#include "softtoken.h"

#include <windows.h>

#include <p11-kit/pkcs11.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace testsupport {

namespace {

constexpr wchar_t configurationVariable[] = L"SOFTHSM2_CONF";
constexpr std::string_view securityOfficerPin = "security officer 1";

void require(CK_RV answer, const char* function) {
    if (answer != CKR_OK)
        throw std::runtime_error(std::string(function) + " answered " + std::to_string(answer));
}

/// The module, loaded and initialised.
class Module {
public:
    Module() : library_(LoadLibraryW(SoftToken::module().c_str())) {
        if (!library_)
            throw std::runtime_error("CSU_SOFTHSM_DLL does not name SoftHSM's module");
        const auto getFunctionList = reinterpret_cast<CK_C_GetFunctionList>(
            reinterpret_cast<void (*)()>(GetProcAddress(library_, "C_GetFunctionList")));
        try {
            require(getFunctionList(&functions_), "C_GetFunctionList");
            require(functions_->C_Initialize(nullptr), "C_Initialize");
        } catch (...) {
            FreeLibrary(library_);
            throw;
        }
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module() {
        functions_->C_Finalize(nullptr);
        FreeLibrary(library_);
    }

    CK_FUNCTION_LIST* operator->() const { return functions_; }

    CK_SLOT_ID firstSlot() const {
        std::array<CK_SLOT_ID, 8> slots{};
        auto count = static_cast<CK_ULONG>(slots.size());
        require(functions_->C_GetSlotList(CK_TRUE, slots.data(), &count), "C_GetSlotList");
        return slots.front();
    }

private:
    HMODULE library_;
    CK_FUNCTION_LIST* functions_ = nullptr;
};

unsigned char* writable(std::string_view text) {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
}

CK_ULONG sizeOf(std::string_view text) {
    return static_cast<CK_ULONG>(text.size());
}

class Session {
public:
    Session(const Module& module, CK_USER_TYPE user, std::string_view pin) : module_(module) {
        require(module_->C_OpenSession(module_.firstSlot(), CKF_RW_SESSION | CKF_SERIAL_SESSION,
                                       nullptr, nullptr, &handle_),
                "C_OpenSession");
        require(module_->C_Login(handle_, user, writable(pin), sizeOf(pin)), "C_Login");
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { module_->C_CloseSession(handle_); }

    CK_SESSION_HANDLE handle() const { return handle_; }

private:
    const Module& module_;
    CK_SESSION_HANDLE handle_ = 0;
};

template <class Value>
CK_ATTRIBUTE attribute(CK_ATTRIBUTE_TYPE type, Value& value) {
    return {type, &value, static_cast<CK_ULONG>(sizeof value)};
}
CK_ATTRIBUTE attribute(CK_ATTRIBUTE_TYPE type, const Bytes& bytes) {
    return {type, const_cast<unsigned char*>(bytes.data()), static_cast<CK_ULONG>(bytes.size())};
}
CK_ATTRIBUTE attribute(CK_ATTRIBUTE_TYPE type, std::string_view text) {
    return {type, writable(text), sizeOf(text)};
}

CK_BBOOL yes = CK_TRUE;
CK_BBOOL no = CK_FALSE;

void initialise(const Module& module) {
    constexpr std::string_view label = "Test token                      "; // 32 characters
    static_assert(label.size() == 32);
    require(module->C_InitToken(module.firstSlot(), writable(securityOfficerPin),
                                sizeOf(securityOfficerPin), writable(label)),
            "C_InitToken");
    const Session session(module, CKU_SO, securityOfficerPin);
    require(module->C_InitPIN(session.handle(), writable(SoftToken::pin), sizeOf(SoftToken::pin)),
            "C_InitPIN");
}

CK_OBJECT_HANDLE findCertificate(const Module& module, CK_SESSION_HANDLE session,
                                 const Bytes& encoded) {
    CK_OBJECT_CLASS certificates = CKO_CERTIFICATE;
    std::array wanted{attribute(CKA_CLASS, certificates), attribute(CKA_VALUE, encoded)};
    require(module->C_FindObjectsInit(session, wanted.data(), static_cast<CK_ULONG>(wanted.size())),
            "C_FindObjectsInit");
    CK_OBJECT_HANDLE object = 0;
    CK_ULONG count = 0;
    require(module->C_FindObjects(session, &object, 1, &count), "C_FindObjects");
    require(module->C_FindObjectsFinal(session), "C_FindObjectsFinal");
    if (count == 0)
        throw std::runtime_error("the token has no such certificate");
    return object;
}

} // namespace

SoftToken::SoftToken(const std::filesystem::path& folder)
    : configuration_(folder / "softhsm2.conf") {
    std::filesystem::create_directory(folder / "tokens");
    std::ofstream(configuration_) << "directories.tokendir = "
                                  << (folder / "tokens").generic_string() << "\n"
                                  << "objectstore.backend = file\n"
                                  << "log.level = ERROR\n";
    _wputenv_s(configurationVariable, configuration_.c_str());
    initialise(Module());
}

template <class Function>
void SoftToken::edit(Function function) const {
    _wputenv_s(configurationVariable, configuration_.c_str());
    const Module module;
    const Session session(module, CKU_USER, pin);
    function(module, session.handle());
}

void SoftToken::addKey(const Bytes& id) {
    edit([&](const Module& module, CK_SESSION_HANDLE session) {
        // The curve P-256, 1.2.840.10045.3.1.7.
        const Bytes curve{0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
        CK_MECHANISM mechanism{CKM_EC_KEY_PAIR_GEN, nullptr, 0};
        std::array publicKey{attribute(CKA_TOKEN, no), attribute(CKA_EC_PARAMS, curve)};
        std::array privateKey{attribute(CKA_TOKEN, yes), attribute(CKA_PRIVATE, yes),
                              attribute(CKA_SENSITIVE, yes), attribute(CKA_SIGN, yes),
                              attribute(CKA_ID, id)};
        CK_OBJECT_HANDLE handles[2] = {};
        require(module->C_GenerateKeyPair(
                    session, &mechanism, publicKey.data(), static_cast<CK_ULONG>(publicKey.size()),
                    privateKey.data(), static_cast<CK_ULONG>(privateKey.size()), &handles[0],
                    &handles[1]),
                "C_GenerateKeyPair");
    });
}

void SoftToken::addCertificate(const Bytes& encoded, const Bytes& id, std::string_view label) {
    edit([&](const Module& module, CK_SESSION_HANDLE session) {
        CK_OBJECT_CLASS certificates = CKO_CERTIFICATE;
        CK_CERTIFICATE_TYPE x509 = CKC_X_509;
        // SoftHSM wants a subject and does not look at it.
        const Bytes subject{0x30, 0x00};
        std::array certificate{
            attribute(CKA_CLASS, certificates), attribute(CKA_CERTIFICATE_TYPE, x509),
            attribute(CKA_TOKEN, yes),          attribute(CKA_PRIVATE, no),
            attribute(CKA_SUBJECT, subject),    attribute(CKA_ID, id),
            attribute(CKA_LABEL, label),        attribute(CKA_VALUE, encoded)};
        CK_OBJECT_HANDLE object = 0;
        require(module->C_CreateObject(session, certificate.data(),
                                       static_cast<CK_ULONG>(certificate.size()), &object),
                "C_CreateObject");
    });
}

void SoftToken::removeCertificate(const Bytes& encoded) {
    edit([&](const Module& module, CK_SESSION_HANDLE session) {
        require(module->C_DestroyObject(session, findCertificate(module, session, encoded)),
                "C_DestroyObject");
    });
}

std::wstring SoftToken::module() {
    const wchar_t* file = _wgetenv(L"CSU_SOFTHSM_DLL");
    return file ? file : L"";
}

std::map<std::wstring, std::wstring> SoftToken::environment() const {
    return {{configurationVariable, configuration_.wstring()}};
}

} // namespace testsupport
