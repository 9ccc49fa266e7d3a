// The process-wide registry of loaded PKCS #11 modules.
#include "libraries.h"

#include "module.h"

#include <algorithm>

namespace pkcs11 {

namespace {

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\libraries.cpp";

} // namespace

Libraries& Libraries::instance() {
    // Never destroyed: modules that are still loaded when the process ends must not be freed
    // while the system takes the process down.
    static Libraries& registry = *new Libraries;
    return registry;
}

CkLibrary Libraries::load(const std::string& path) {
    const std::lock_guard lock(mutex_);
    DynamicLibrary file(path);
    const auto known = std::find_if(loaded_.begin(), loaded_.end(), [&](const Loaded& loaded) {
        return loaded.module->isIn(file) && loaded.module->isUsable();
    });
    std::shared_ptr<Module> finalized;
    if (known != loaded_.end()) {
        if (!known->module->isFinalizedByOthers()) {
            ++known->users;
            return CkLibrary(known->module);
        }
        finalized = known->module;
    }
    auto module = std::make_shared<Module>(std::move(file), path);
    // Once the module is initialised nothing may fail any more.
    loaded_.reserve(loaded_.size() + 1);
    module->initialize();
    if (finalized)
        finalized->retire();
    loaded_.push_back(Loaded{module, 1});
    return CkLibrary(std::move(module));
}

void Libraries::unload(const CkLibrary& library) {
    const std::lock_guard lock(mutex_);
    const auto position = std::find_if(loaded_.begin(), loaded_.end(), [&](const Loaded& loaded) {
        return loaded.module == library.module_;
    });
    if (position == loaded_.end())
        throw cryptokiError(sourceFile, ckr::argumentsBad);
    if (--position->users != 0)
        return;
    const std::shared_ptr<Module> module = std::move(position->module);
    loaded_.erase(position);
    check(module->finalizeAndFree(), sourceFile);
}

} // namespace pkcs11
