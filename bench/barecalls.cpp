// The calls that registering a token's certificates cannot do without, and nothing else: no
// checks, no sorting, no certificate decoded.
//   barecalls MODULE PIN STORE CSP
#include <windows.h>

#include <p11-kit/pkcs11.h>
#include <shellapi.h>
#include <wincrypt.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

struct TokenCertificate {
    Bytes value;
    Bytes id;
    Bytes label;
};

void require(bool succeeded, const char* what) {
    if (!succeeded)
        throw std::runtime_error(what);
}

void require(CK_RV answer, const char* what) {
    require(answer == CKR_OK, what);
}

CK_FUNCTION_LIST* load(const wchar_t* module) {
    const HMODULE library = LoadLibraryW(module);
    require(library != nullptr, "LoadLibrary");
    const auto getFunctionList = reinterpret_cast<CK_C_GetFunctionList>(
        reinterpret_cast<void (*)()>(GetProcAddress(library, "C_GetFunctionList")));
    CK_FUNCTION_LIST* functions = nullptr;
    require(getFunctionList(&functions), "C_GetFunctionList");
    require(functions->C_Initialize(nullptr), "C_Initialize");
    return functions;
}

CK_SESSION_HANDLE logIn(CK_FUNCTION_LIST* token, const std::string& pin) {
    CK_SLOT_ID slot = 0;
    CK_ULONG count = 1;
    require(token->C_GetSlotList(CK_TRUE, &slot, &count), "C_GetSlotList");
    CK_SESSION_HANDLE session = 0;
    require(
        token->C_OpenSession(slot, CKF_RW_SESSION | CKF_SERIAL_SESSION, nullptr, nullptr, &session),
        "C_OpenSession");
    std::vector<CK_UTF8CHAR> bytes(pin.begin(), pin.end());
    require(token->C_Login(session, CKU_USER, bytes.data(), static_cast<CK_ULONG>(bytes.size())),
            "C_Login");
    return session;
}

std::vector<CK_OBJECT_HANDLE> find(CK_FUNCTION_LIST* token, CK_SESSION_HANDLE session,
                                   CK_OBJECT_CLASS kind) {
    CK_ATTRIBUTE wanted{CKA_CLASS, &kind, sizeof kind};
    require(token->C_FindObjectsInit(session, &wanted, 1), "C_FindObjectsInit");
    std::vector<CK_OBJECT_HANDLE> found;
    CK_OBJECT_HANDLE chunk[64];
    CK_ULONG count = 0;
    do {
        require(token->C_FindObjects(session, chunk, 64, &count), "C_FindObjects");
        found.insert(found.end(), chunk, chunk + count);
    } while (count != 0);
    require(token->C_FindObjectsFinal(session), "C_FindObjectsFinal");
    return found;
}

/// The values of attributes, read as they must be: lengths first.
void read(CK_FUNCTION_LIST* token, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
          std::vector<std::pair<CK_ATTRIBUTE_TYPE, Bytes*>> wanted) {
    std::vector<CK_ATTRIBUTE> attributes;
    for (const auto& [type, value] : wanted)
        attributes.push_back({type, nullptr, 0});
    const auto count = static_cast<CK_ULONG>(attributes.size());
    require(token->C_GetAttributeValue(session, object, attributes.data(), count), "lengths");
    for (std::size_t i = 0; i != attributes.size(); ++i) {
        wanted[i].second->resize(attributes[i].ulValueLen);
        attributes[i].pValue = wanted[i].second->data();
    }
    require(token->C_GetAttributeValue(session, object, attributes.data(), count), "values");
}

std::vector<TokenCertificate> harvest(CK_FUNCTION_LIST* token, CK_SESSION_HANDLE session) {
    std::vector<TokenCertificate> certificates;
    for (const CK_OBJECT_HANDLE object : find(token, session, CKO_CERTIFICATE)) {
        TokenCertificate& certificate = certificates.emplace_back();
        read(token, session, object,
             {{CKA_VALUE, &certificate.value},
              {CKA_ID, &certificate.id},
              {CKA_LABEL, &certificate.label}});
    }
    for (const CK_OBJECT_HANDLE object : find(token, session, CKO_PRIVATE_KEY)) {
        Bytes id;
        read(token, session, object, {{CKA_ID, &id}});
    }
    return certificates;
}

std::wstring containerOf(const Bytes& id) {
    std::wstring name = L"CKAIDHEX:";
    for (const unsigned char byte : id)
        for (const int digit : {byte >> 4, byte & 0x0F})
            name += L"0123456789ABCDEF"[digit];
    return name;
}

void set(const CERT_CONTEXT* context, DWORD property, const void* value) {
    require(CertSetCertificateContextProperty(context, property, 0, value) != 0,
            "CertSetCertificateContextProperty");
}

void registerInStore(HCERTSTORE store, const TokenCertificate& certificate, std::wstring csp) {
    const CERT_CONTEXT* context = nullptr;
    require(CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, certificate.value.data(),
                                             static_cast<DWORD>(certificate.value.size()),
                                             CERT_STORE_ADD_NEW, &context) != 0,
            "CertAddEncodedCertificateToStore");
    std::wstring container = containerOf(certificate.id);
    CRYPT_KEY_PROV_INFO info{};
    info.pwszContainerName = container.data();
    info.pwszProvName = csp.data();
    info.dwProvType = PROV_RSA_FULL;
    info.dwKeySpec = AT_KEYEXCHANGE;
    set(context, CERT_KEY_PROV_INFO_PROP_ID, &info);

    std::wstring name(certificate.label.begin(), certificate.label.end());
    CRYPT_DATA_BLOB blob{static_cast<DWORD>((name.size() + 1) * sizeof(wchar_t)),
                         reinterpret_cast<BYTE*>(name.data())};
    set(context, CERT_FRIENDLY_NAME_PROP_ID, &blob);

    std::string record(container.begin(), container.end());
    record += "\n" + std::string(csp.begin(), csp.end()) + "\n";
    constexpr DWORD recordProperty = 54086;
    blob = {static_cast<DWORD>(record.size()), reinterpret_cast<BYTE*>(record.data())};
    set(context, recordProperty, &blob);
    CertFreeCertificateContext(context);
}

void run(wchar_t** arguments) {
    CK_FUNCTION_LIST* const token = load(arguments[1]);
    const std::wstring pin = arguments[2];
    const CK_SESSION_HANDLE session = logIn(token, std::string(pin.begin(), pin.end()));
    const std::vector<TokenCertificate> certificates = harvest(token, session);
    token->C_CloseSession(session);
    token->C_Finalize(nullptr);

    const HCERTSTORE store = CertOpenSystemStoreW(0, arguments[3]);
    require(store != nullptr, "CertOpenSystemStore");
    for (const TokenCertificate& certificate : certificates)
        registerInStore(store, certificate, arguments[4]);
    CertCloseStore(store, 0);
}

} // namespace

int main() {
    int count = 0;
    wchar_t** const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    if (count != 5) {
        std::fputs("usage: barecalls MODULE PIN STORE CSP\n", stderr);
        return 2;
    }
    try {
        run(arguments);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "barecalls: %s failed\n", error.what());
        return 1;
    }
}
