// The Windows functions that the library imports, all hooked.
#include "windowscalls.h"

#include <algorithm>
#include <utility>

namespace torture {

namespace {

constexpr char crypt32[] = "crypt32.dll";
constexpr char advapi32[] = "advapi32.dll";
constexpr char kernel32[] = "kernel32.dll";

void* library() {
    return GetModuleHandleW(L"certstoreupdater.dll");
}

Bytes encodingOf(const CERT_CONTEXT* context) {
    return Bytes(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded);
}

/// What a function does that only says that it failed.
template <class Result>
auto answering(Result result) {
    return [result](auto...) { return result; };
}

} // namespace

template <class Result, class... Arguments>
struct WindowsCalls::Rule<Result(Arguments...)> {
    /// What the function does when it fails; none: it is never made to fail.
    std::function<Result(Arguments...)> fail;
    /// Told of every call that was made, with its result.
    std::function<void(Result, Arguments...)> made = nullptr;
    std::function<void(WindowsCall&, Arguments...)> describe = nullptr;
    /// Whether the result is a success.
    std::function<bool(Result)> succeeded = [](Result result) { return result != Result{}; };
};

WindowsCalls::WindowsCalls() {
    watchStores();
    watchCertificates();
    watchProperties();
    watchSecurity();
    watchModules();
    watchFiles();
}

WindowsCalls::~WindowsCalls() {
    while (!hooks_.empty())
        hooks_.pop_back();
}

void WindowsCalls::begin(std::size_t failing, DWORD error) {
    calls_.clear();
    succeeded_.clear();
    failing_ = failing;
    error_ = error;
}

std::size_t WindowsCalls::count(std::string_view function) const {
    return static_cast<std::size_t>(std::count(succeeded_.begin(), succeeded_.end(), function));
}

bool WindowsCalls::strikes(WindowsCall call) {
    calls_.push_back(std::move(call));
    return calls_.size() == failing_;
}

template <class Function>
void WindowsCalls::watch(const char* dll, const char* function, Rule<Function> rule) {
    auto hook = std::make_shared<testsupport::ImportHook<Function>>(library(), dll, function);
    hook->replace([this, function, rule = std::move(rule), target = hook.get()](auto... arguments) {
        if (rule.fail) {
            WindowsCall call{function};
            if (rule.describe)
                rule.describe(call, arguments...);
            if (strikes(std::move(call))) {
                const auto result = rule.fail(arguments...);
                SetLastError(error_);
                return result;
            }
        }
        const auto result = target->original(arguments...);
        const DWORD error = GetLastError();
        if (rule.succeeded(result))
            succeeded_.emplace_back(function);
        if (rule.made)
            rule.made(result, arguments...);
        SetLastError(error);
        return result;
    });
    hooks_.push_back(std::move(hook));
}

void WindowsCalls::watchStores() {
    watch<decltype(CertOpenSystemStoreW)>(
        crypt32, "CertOpenSystemStoreW",
        {answering(HCERTSTORE{nullptr}),
         [this](HCERTSTORE store, auto...) { stores.take(store); }});
    watch<decltype(CertCloseStore)>(
        crypt32, "CertCloseStore",
        {nullptr, [this](BOOL, HCERTSTORE store, DWORD) { stores.giveBack(store); }});
    watch<decltype(CertEnumCertificatesInStore)>(
        crypt32, "CertEnumCertificatesInStore",
        {[this](HCERTSTORE, PCCERT_CONTEXT previous) {
             contexts.giveBack(previous);
             CertFreeCertificateContext(previous);
             return PCCERT_CONTEXT{nullptr};
         },
         [this](PCCERT_CONTEXT context, HCERTSTORE, PCCERT_CONTEXT previous) {
             contexts.giveBack(previous);
             contexts.take(context);
         }});
    watch<decltype(CertFindCertificateInStore)>(
        crypt32, "CertFindCertificateInStore",
        {answering(PCCERT_CONTEXT{nullptr}),
         [this](PCCERT_CONTEXT context, auto...) { contexts.take(context); }});
    watch<decltype(CertAddEncodedCertificateToStore)>(
        crypt32, "CertAddEncodedCertificateToStore",
        {answering(BOOL{FALSE}),
         [this](BOOL added, HCERTSTORE, DWORD, const BYTE*, DWORD, DWORD, PCCERT_CONTEXT* context) {
             if (added)
                 contexts.take(*context);
         }});
    // Releases what it is given also when it fails.
    watch<decltype(CertDeleteCertificateFromStore)>(
        crypt32, "CertDeleteCertificateFromStore",
        {[this](PCCERT_CONTEXT context) {
             contexts.giveBack(context);
             CertFreeCertificateContext(context);
             return BOOL{FALSE};
         },
         [this](BOOL, PCCERT_CONTEXT context) { contexts.giveBack(context); }});
}

void WindowsCalls::watchCertificates() {
    watch<decltype(CertCreateCertificateContext)>(
        crypt32, "CertCreateCertificateContext",
        {nullptr, [this](PCCERT_CONTEXT context, auto...) { contexts.take(context); }});
    watch<decltype(CertDuplicateCertificateContext)>(
        crypt32, "CertDuplicateCertificateContext",
        {answering(PCCERT_CONTEXT{nullptr}),
         [this](PCCERT_CONTEXT context, auto...) { contexts.take(context); }});
    watch<decltype(CertFreeCertificateContext)>(
        crypt32, "CertFreeCertificateContext",
        {nullptr, [this](BOOL, PCCERT_CONTEXT context) { contexts.giveBack(context); }});
    watch<decltype(CertCompareCertificate)>(crypt32, "CertCompareCertificate",
                                            {answering(BOOL{FALSE})});
}

void WindowsCalls::watchProperties() {
    watch<decltype(CertGetCertificateContextProperty)>(
        crypt32, "CertGetCertificateContextProperty",
        {answering(BOOL{FALSE}), nullptr,
         [](WindowsCall& call, PCCERT_CONTEXT context, DWORD property, void* value, DWORD*) {
             call.property = property;
             call.asksSize = value == nullptr;
             call.certificate = encodingOf(context);
         }});
    watch<decltype(CertSetCertificateContextProperty)>(
        crypt32, "CertSetCertificateContextProperty",
        {answering(BOOL{FALSE}), nullptr,
         [](WindowsCall& call, PCCERT_CONTEXT context, DWORD property, auto...) {
             call.property = property;
             call.certificate = encodingOf(context);
         }});
}

void WindowsCalls::watchSecurity() {
    watch<decltype(AllocateAndInitializeSid)>(
        advapi32, "AllocateAndInitializeSid",
        {answering(BOOL{FALSE}), [this](BOOL made, auto... arguments) {
             if (made)
                 sids.take(*std::get<sizeof...(arguments) - 1>(std::tuple(arguments...)));
         }});
    watch<decltype(FreeSid)>(advapi32, "FreeSid",
                             {nullptr, [this](PVOID, PSID sid) { sids.giveBack(sid); }});
    watch<decltype(GetFileSecurityW)>(
        advapi32, "GetFileSecurityW",
        {answering(BOOL{FALSE}), nullptr,
         [](WindowsCall& call, LPCWSTR, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR buffer, DWORD,
            LPDWORD) { call.asksSize = buffer == nullptr; }});
    watch<decltype(SetFileSecurityW)>(advapi32, "SetFileSecurityW", {answering(BOOL{FALSE})});
    watch<decltype(GetSecurityDescriptorDacl)>(advapi32, "GetSecurityDescriptorDacl",
                                               {answering(BOOL{FALSE})});
    watch<decltype(SetSecurityDescriptorDacl)>(advapi32, "SetSecurityDescriptorDacl",
                                               {answering(BOOL{FALSE})});
    watch<decltype(InitializeSecurityDescriptor)>(advapi32, "InitializeSecurityDescriptor",
                                                  {answering(BOOL{FALSE})});
    watch<decltype(InitializeAcl)>(advapi32, "InitializeAcl", {answering(BOOL{FALSE})});
    watch<decltype(IsValidAcl)>(advapi32, "IsValidAcl", {answering(BOOL{FALSE})});
    watch<decltype(GetAclInformation)>(advapi32, "GetAclInformation", {answering(BOOL{FALSE})});
    watch<decltype(GetAce)>(advapi32, "GetAce", {answering(BOOL{FALSE})});
    watch<decltype(AddAce)>(advapi32, "AddAce", {answering(BOOL{FALSE})});
    watch<decltype(AddAccessAllowedAceEx)>(advapi32, "AddAccessAllowedAceEx",
                                           {answering(BOOL{FALSE})});
    watch<decltype(CryptEnumProvidersW)>(
        advapi32, "CryptEnumProvidersW",
        {answering(BOOL{FALSE}), nullptr,
         [](WindowsCall& call, DWORD, DWORD*, DWORD, DWORD*, LPWSTR name, DWORD*) {
             call.asksSize = name == nullptr;
         }});
}

void WindowsCalls::watchModules() {
    watch<decltype(LoadLibraryExW)>(
        kernel32, "LoadLibraryExW",
        {answering(HMODULE{nullptr}), [this](HMODULE module, auto...) { modules.take(module); }});
    watch<decltype(FreeLibrary)>(kernel32, "FreeLibrary", {nullptr, [this](BOOL, HMODULE module) {
                                                               modules.giveBack(module);
                                                           }});
    watch<decltype(GetProcAddress)>(kernel32, "GetProcAddress", {answering(FARPROC{nullptr})});
    watch<decltype(MultiByteToWideChar)>(
        kernel32, "MultiByteToWideChar",
        {answering(int{0}), nullptr,
         [](WindowsCall& call, UINT, DWORD, LPCCH, int, LPWSTR text, int) {
             call.asksSize = text == nullptr;
         }});
    watch<decltype(GetFullPathNameW)>(kernel32, "GetFullPathNameW", {answering(DWORD{0})});
    watch<decltype(GetModuleFileNameW)>(kernel32, "GetModuleFileNameW", {answering(DWORD{0})});
    watch<decltype(GetSystemDirectoryW)>(kernel32, "GetSystemDirectoryW", {answering(UINT{0})});
}

void WindowsCalls::watchFiles() {
    watch<decltype(CreateFileW)>(
        kernel32, "CreateFileW",
        {answering(INVALID_HANDLE_VALUE),
         [this](HANDLE file, auto...) {
             if (file != INVALID_HANDLE_VALUE)
                 files.take(file);
         },
         [](WindowsCall& call, LPCWSTR, DWORD access, auto...) { call.access = access; },
         [](HANDLE file) { return file != INVALID_HANDLE_VALUE; }});
    watch<decltype(CloseHandle)>(kernel32, "CloseHandle",
                                 {nullptr, [this](BOOL, HANDLE file) { files.giveBack(file); }});
    watch<decltype(GetFileAttributesW)>(
        kernel32, "GetFileAttributesW",
        {answering(INVALID_FILE_ATTRIBUTES), nullptr, nullptr,
         [](DWORD attributes) { return attributes != INVALID_FILE_ATTRIBUTES; }});
    watch<decltype(GetFileInformationByHandle)>(kernel32, "GetFileInformationByHandle",
                                                {answering(BOOL{FALSE})});
}

} // namespace torture
