// Loads a PKCS#11 module and prints its description: ends with 0 only if the module works.
#include <windows.h>

#include <p11-kit/pkcs11.h>

#include <cstdio>

namespace {

int failed(const char* what, unsigned long code) {
    std::fprintf(stderr, "%s failed with 0x%lx\n", what, code);
    return 1;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: %s MODULE\n", arguments[0]);
        return 2;
    }
    const HMODULE module = LoadLibraryA(arguments[1]);
    if (!module) {
        return failed("LoadLibrary", GetLastError());
    }
    const FARPROC entry = GetProcAddress(module, "C_GetFunctionList");
    if (!entry) {
        return failed("GetProcAddress", GetLastError());
    }
    CK_FUNCTION_LIST* functions = nullptr;
    CK_RV result = reinterpret_cast<CK_C_GetFunctionList>(entry)(&functions);
    if (result != CKR_OK) {
        return failed("C_GetFunctionList", result);
    }
    result = functions->C_Initialize(nullptr);
    if (result != CKR_OK) {
        return failed("C_Initialize", result);
    }
    CK_INFO info = {};
    result = functions->C_GetInfo(&info);
    if (result != CKR_OK) {
        return failed("C_GetInfo", result);
    }
    std::printf("%.32s, PKCS#11 %d.%d\n", reinterpret_cast<const char*>(info.libraryDescription),
                info.cryptokiVersion.major, info.cryptokiVersion.minor);
    result = functions->C_Finalize(nullptr);
    return result == CKR_OK ? 0 : failed("C_Finalize", result);
}
