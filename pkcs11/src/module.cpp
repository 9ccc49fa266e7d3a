// A loaded PKCS #11 module.
#include "module.h"

#include "cklibrary.h"

#include <utility>

namespace pkcs11 {

namespace {

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\module.cpp";

} // namespace

Module::Module(DynamicLibrary file, const std::string& path) : file_(std::move(file)) {
    const auto getFunctionList =
        reinterpret_cast<CK_C_GetFunctionList>(file_.function("C_GetFunctionList"));
    if (!getFunctionList)
        throwModuleNotLoaded(sourceFile, path, L"C_GetFunctionList is missing");
    CK_FUNCTION_LIST* list = nullptr;
    check(getFunctionList(&list), sourceFile);
    if (!list)
        throwModuleNotLoaded(sourceFile, path, L"the function list is missing");
    if (!list->C_Initialize)
        throwModuleNotLoaded(sourceFile, path, L"C_Initialize is missing");
    if (!list->C_Finalize)
        throwModuleNotLoaded(sourceFile, path, L"C_Finalize is missing");
    functions_ = list;
}

void Module::initialize() {
    CK_C_INITIALIZE_ARGS arguments{};
    arguments.flags = CKF_OS_LOCKING_OK;
    const CK_RV answer = functions().C_Initialize(&arguments);
    if (answer == ckr::cryptokiAlreadyInitialized)
        return;
    check(answer, sourceFile);
    isOurs_ = true;
}

bool Module::isFinalizedByOthers() const {
    CK_INFO ignored{};
    // Not C_Initialize, whose calls some modules count.
    return answerOf(functions().C_GetInfo, &ignored) == ckr::cryptokiNotInitialized;
}

CK_RV Module::finalizeAndFree() noexcept {
    const CK_RV answer = isOurs_ ? functions_->C_Finalize(nullptr) : CKR_OK;
    functions_ = nullptr;
    file_ = DynamicLibrary();
    return answer;
}

const CK_FUNCTION_LIST& Module::functions() const {
    if (!isUsable())
        throw cryptokiError(sourceFile, ckr::cryptokiNotInitialized);
    return *functions_;
}

const Module& CkLibrary::module() const {
    if (!module_)
        throw cryptokiError(sourceFile, ckr::cryptokiNotInitialized);
    return *module_;
}

} // namespace pkcs11
