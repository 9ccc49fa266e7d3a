// A token of SoftHSM, made and changed through its PKCS #11 module.
#include "softtoken.h"

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace testsupport {

namespace {

using NativeText = SoftToken::NativeText;

constexpr std::string_view securityOfficerPin = "security officer 1";

#ifdef _WIN32
constexpr wchar_t configurationVariable[] = L"SOFTHSM2_CONF";

void* load(const std::filesystem::path& file) {
    return LoadLibraryW(file.c_str());
}
void unload(void* library) {
    FreeLibrary(static_cast<HMODULE>(library));
}
void* find(void* library, const char* function) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), function));
}
#else
constexpr char configurationVariable[] = "SOFTHSM2_CONF";

void* load(const std::filesystem::path& file) {
    return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
}
void unload(void* library) {
    dlclose(library);
}
void* find(void* library, const char* function) {
    return dlsym(library, function);
}
#endif

void require(CK_RV answer, const char* function) {
    if (answer != CKR_OK)
        throw std::runtime_error(std::string(function) + " answered " + std::to_string(answer));
}

/// The module, loaded and initialised.
class Module {
public:
    explicit Module(const std::filesystem::path& file) : library_(load(file)) {
        if (!library_)
            throw std::runtime_error("SoftHSM's module cannot be loaded: " + file.string());
        try {
            initialize();
        } catch (...) {
            unload(library_);
            throw;
        }
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module() {
        functions_->C_Finalize(nullptr);
        unload(library_);
    }

    CK_FUNCTION_LIST* functions() const { return functions_; }
    CK_FUNCTION_LIST* operator->() const { return functions_; }

    CK_SLOT_ID firstSlot() const {
        std::array<CK_SLOT_ID, 8> slots{};
        auto count = static_cast<CK_ULONG>(slots.size());
        require(functions_->C_GetSlotList(CK_TRUE, slots.data(), &count), "C_GetSlotList");
        if (count == 0)
            throw std::runtime_error("SoftHSM has no slot");
        return slots.front();
    }

private:
    void initialize() {
        const auto getFunctionList =
            reinterpret_cast<CK_C_GetFunctionList>(find(library_, "C_GetFunctionList"));
        if (!getFunctionList)
            throw std::runtime_error("the file is no PKCS #11 module");
        require(getFunctionList(&functions_), "C_GetFunctionList");
        require(functions_->C_Initialize(nullptr), "C_Initialize");
    }

    void* library_;
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

void initializeToken(const Module& module, std::string_view pin) {
    constexpr std::string_view label = "Test token                      "; // 32 characters
    static_assert(label.size() == 32);
    require(module->C_InitToken(module.firstSlot(), writable(securityOfficerPin),
                                sizeOf(securityOfficerPin), writable(label)),
            "C_InitToken");
    const Session session(module, CKU_SO, securityOfficerPin);
    require(module->C_InitPIN(session.handle(), writable(pin), sizeOf(pin)), "C_InitPIN");
}

} // namespace

void SoftTokenEditor::addKey(const Bytes& id) {
    // The curve P-256, 1.2.840.10045.3.1.7.
    const Bytes curve{0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
    CK_MECHANISM mechanism{CKM_EC_KEY_PAIR_GEN, nullptr, 0};
    std::array publicKey{attribute(CKA_TOKEN, no), attribute(CKA_EC_PARAMS, curve)};
    std::array privateKey{attribute(CKA_TOKEN, yes), attribute(CKA_PRIVATE, yes),
                          attribute(CKA_SENSITIVE, yes), attribute(CKA_SIGN, yes),
                          attribute(CKA_ID, id)};
    CK_OBJECT_HANDLE handles[2] = {};
    require(module_->C_GenerateKeyPair(session_, &mechanism, publicKey.data(),
                                       static_cast<CK_ULONG>(publicKey.size()), privateKey.data(),
                                       static_cast<CK_ULONG>(privateKey.size()), &handles[0],
                                       &handles[1]),
            "C_GenerateKeyPair");
}

void SoftTokenEditor::addCertificate(const Bytes& encoded, const Bytes& id,
                                     std::string_view label) {
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
    require(module_->C_CreateObject(session_, certificate.data(),
                                    static_cast<CK_ULONG>(certificate.size()), &object),
            "C_CreateObject");
}

void SoftTokenEditor::removeCertificate(const Bytes& encoded) {
    require(module_->C_DestroyObject(session_, findCertificate(encoded)), "C_DestroyObject");
}

CK_OBJECT_HANDLE SoftTokenEditor::findCertificate(const Bytes& encoded) const {
    CK_OBJECT_CLASS certificates = CKO_CERTIFICATE;
    std::array wanted{attribute(CKA_CLASS, certificates), attribute(CKA_VALUE, encoded)};
    require(
        module_->C_FindObjectsInit(session_, wanted.data(), static_cast<CK_ULONG>(wanted.size())),
        "C_FindObjectsInit");
    CK_OBJECT_HANDLE object = 0;
    CK_ULONG count = 0;
    require(module_->C_FindObjects(session_, &object, 1, &count), "C_FindObjects");
    require(module_->C_FindObjectsFinal(session_), "C_FindObjectsFinal");
    if (count == 0)
        throw std::runtime_error("the token has no such certificate");
    return object;
}

SoftToken::SoftToken(const std::filesystem::path& folder, const std::filesystem::path& file,
                     std::string_view userPin)
    : file_(file), configuration_(folder / "softhsm2.conf"), pin_(userPin) {
    std::filesystem::create_directory(folder / "tokens");
    std::ofstream(configuration_) << "directories.tokendir = "
                                  << (folder / "tokens").generic_string() << "\n"
                                  << "objectstore.backend = file\n"
                                  << "log.level = ERROR\n";
    select();
    initializeToken(Module(file_), pin_);
}

void SoftToken::edit(const std::function<void(SoftTokenEditor&)>& changes) const {
    select();
    const Module module(file_);
    const Session session(module, CKU_USER, pin_);
    SoftTokenEditor editor(module.functions(), session.handle());
    changes(editor);
}

void SoftToken::addKey(const Bytes& id) const {
    edit([&](SoftTokenEditor& editor) { editor.addKey(id); });
}

void SoftToken::addCertificate(const Bytes& encoded, const Bytes& id,
                               std::string_view label) const {
    edit([&](SoftTokenEditor& editor) { editor.addCertificate(encoded, id, label); });
}

void SoftToken::removeCertificate(const Bytes& encoded) const {
    edit([&](SoftTokenEditor& editor) { editor.removeCertificate(encoded); });
}

void SoftToken::select() const {
#ifdef _WIN32
    _wputenv_s(configurationVariable, configuration_.c_str());
#else
    setenv(configurationVariable, configuration_.c_str(), 1);
#endif
}

std::map<NativeText, NativeText> SoftToken::environment() const {
    return {{configurationVariable, configuration_.native()}};
}

NativeText SoftToken::module() {
#ifdef _WIN32
    const wchar_t* const file = _wgetenv(L"CSU_SOFTHSM_DLL");
#else
    const char* const file = std::getenv("CSU_NATIVE_SOFTHSM");
#endif
    return file ? file : NativeText();
}

} // namespace testsupport
