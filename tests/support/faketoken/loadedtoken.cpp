// The fake token in the test's own process.
#include "loadedtoken.h"

#include <stdexcept>
#include <utility>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <filesystem>
#endif

namespace faketoken {

namespace {

#ifdef _WIN32
void* load(const std::string& path) {
    return LoadLibraryA(path.c_str());
}
void unload(void* handle) {
    FreeLibrary(static_cast<HMODULE>(handle));
}
void* find(void* handle, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name));
}
#else
void* load(const std::string& path) {
    return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}
void unload(void* handle) {
    dlclose(handle);
}
void* find(void* handle, const char* name) {
    return dlsym(handle, name);
}
#endif

template <class Function>
Function required(void* handle, const char* name) {
    void* const function = find(handle, name);
    if (!function)
        throw std::runtime_error(std::string("the module has no ") + name);
    return reinterpret_cast<Function>(function);
}

} // namespace

#ifdef _WIN32
std::string programFolder() {
    char path[MAX_PATH];
    const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string program(path, length);
    return program.substr(0, program.find_last_of('\\') + 1);
}

std::string fileNameOf(const std::string& module) {
    return module + ".dll";
}

bool isLoaded(const std::string& path) {
    return GetModuleHandleA(path.c_str()) != nullptr;
}
#else
std::string programFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + '/';
}

std::string fileNameOf(const std::string& module) {
    return module + ".so";
}

bool isLoaded(const std::string& path) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    if (handle)
        dlclose(handle);
    return handle != nullptr;
}
#endif

std::string plantedFolder() {
    return programFolder() + "planted";
}

std::string modulePath(const std::string& module) {
    return programFolder() + fileNameOf(module);
}

LoadedToken::LoadedToken(const std::string& path) : path_(path), handle_(load(path)) {
    if (!handle_)
        throw std::runtime_error("cannot load " + path);
    try {
        control_ = required<ControlFunction>(handle_, controlFunctionName)();
    } catch (...) {
        unload(handle_);
        throw;
    }
}

LoadedToken::~LoadedToken() {
    release();
}

CK_FUNCTION_LIST& LoadedToken::functions() const {
    CK_FUNCTION_LIST* list = nullptr;
    if (required<CK_C_GetFunctionList>(handle_, "C_GetFunctionList")(&list) != CKR_OK || !list)
        throw std::runtime_error("the module gives no functions");
    return *list;
}

bool LoadedToken::release() {
    if (handle_)
        unload(std::exchange(handle_, nullptr));
    control_ = nullptr;
    return isLoaded(path_);
}

} // namespace faketoken
