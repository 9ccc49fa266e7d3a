// Installing the layer in this process.
#include "winecompat.h"

#include "runningonwine.h"
#include "storelayer.h"

#include <windows.h>
#include <winternl.h>

#include <cwchar>
#include <iterator>

namespace testsupport {

namespace {

constexpr wchar_t libraryName[] = L"certstoreupdater.dll";
constexpr wchar_t layerName[] = L"winecompat.dll";

template <class Function>
Function* ntdll(const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<ImportSlot::Address>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

// Told to every process by ntdll, documented with LdrRegisterDllNotification; no header has it.
struct LoadedDll {
    ULONG flags;
    const UNICODE_STRING* fullName;
    const UNICODE_STRING* baseName;
    void* base;
    ULONG imageSize;
};
constexpr ULONG reasonLoaded = 1;
using DllNotification = void CALLBACK(ULONG reason, const LoadedDll* dll, void* context);
using RegisterDllNotification = NTSTATUS NTAPI(ULONG flags, DllNotification* notify, void* context,
                                               void** cookie);

void redirectImportsOf(void* module) {
    for (const StoreLayerFunction& function : storeLayerFunctions())
        if (ImportSlot::exists(module, "crypt32.dll", function.name))
            ImportSlot(module, "crypt32.dll", function.name).redirect(function.replacement);
}

bool isLibrary(const UNICODE_STRING& name) {
    constexpr std::size_t length = std::size(libraryName) - 1;
    return name.Length == length * sizeof(wchar_t) &&
           _wcsnicmp(name.Buffer, libraryName, length) == 0;
}

void CALLBACK onDllLoaded(ULONG reason, const LoadedDll* dll, void*) {
    if (reason == reasonLoaded && isLibrary(*dll->baseName))
        redirectImportsOf(dll->base);
}

bool isThisModule(HMODULE module) {
    HMODULE own = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                           GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&onDllLoaded), &own);
    return own == module;
}

bool isInstalledByDll() {
    const HMODULE layer = GetModuleHandleW(layerName);
    return layer && !isThisModule(layer);
}

} // namespace

void installWineCompatibility() {
    static bool installed = false;
    if (installed || !runningOnWine() || isInstalledByDll())
        return;
    installed = true;
    redirectImportsOf(GetModuleHandleW(nullptr));
    if (const HMODULE library = GetModuleHandleW(libraryName))
        redirectImportsOf(library);
    void* cookie = nullptr;
    ntdll<RegisterDllNotification>("LdrRegisterDllNotification")(0, onDllLoaded, nullptr, &cookie);
}

} // namespace testsupport
