// The calls that registering a token's certificates cannot do without, and nothing else: no
// checks, no sorting, no certificate decoded.
//   barecalls MODULE PIN STORE CSP
#include "barecryptoki.h"
#include "barestore.h"
#include "hex.h"

#include <windows.h>

#include <p11-kit/pkcs11.h>
#include <shellapi.h>
#include <wincrypt.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

using bench::require;

CK_FUNCTION_LIST* load(const wchar_t* module) {
    const HMODULE library = LoadLibraryW(module);
    require(library != nullptr, "LoadLibrary");
    const auto getFunctionList = reinterpret_cast<CK_C_GetFunctionList>(
        reinterpret_cast<void (*)()>(GetProcAddress(library, "C_GetFunctionList")));
    require(getFunctionList != nullptr, "GetProcAddress");
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

std::wstring containerOf(const bench::Octets& id) {
    const std::string digits = testsupport::toHex(id);
    return L"CKAIDHEX:" + std::wstring(digits.begin(), digits.end());
}

void run(wchar_t** arguments) {
    CK_FUNCTION_LIST* const token = load(arguments[1]);
    const std::wstring pin = arguments[2];
    const CK_SESSION_HANDLE session = logIn(token, std::string(pin.begin(), pin.end()));
    const std::vector<bench::TokenCertificate> certificates =
        bench::harvestBare(token, session).certificates;
    token->C_CloseSession(session);
    token->C_Finalize(nullptr);

    const HCERTSTORE store = CertOpenSystemStoreW(0, arguments[3]);
    require(store != nullptr, "CertOpenSystemStore");
    for (const auto& [value, id, label] : certificates)
        bench::registerBare(store, value, containerOf(id), arguments[4],
                            std::wstring(label.begin(), label.end()));
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
