// The Windows functions that the library imports, all hooked: any call can be made to fail, and
// what they hand out is counted until it is given back.
#pragma once

#include "ledger.h"

#include "importhook.h"

#include <windows.h>

#include <wincrypt.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace torture {

using Bytes = std::vector<unsigned char>;

/// A call that the library made and that could have failed, with what an error tells of it.
struct WindowsCall {
    std::string function;
    DWORD property = 0;    ///< which one is read or written
    bool asksSize = false; ///< reads how long a property or a text is
    Bytes certificate{};   ///< whose property it is, encoded
    DWORD access = 0;      ///< the access to a file that is asked for
};

/// The functions of crypt32 and advapi32, and those of kernel32 that load modules and look at
/// files. One object at a time, one thread. Hooks that answer in place of Windows must be made
/// before it.
class WindowsCalls {
public:
    WindowsCalls();
    WindowsCalls(const WindowsCalls&) = delete;
    WindowsCalls& operator=(const WindowsCalls&) = delete;
    ~WindowsCalls();

    /// Forgets the calls so far. The n-th call from now on fails with this error: it does nothing
    /// but what the function does when it fails. 0: none.
    void begin(std::size_t failing = 0, DWORD error = ERROR_SUCCESS);

    /// The calls that could fail, in order.
    const std::vector<WindowsCall>& calls() const noexcept { return calls_; }
    /// The call that failed, or null if there was none.
    const WindowsCall* failedCall() const noexcept {
        return failing_ != 0 && calls_.size() >= failing_ ? &calls_[failing_ - 1] : nullptr;
    }
    DWORD failedError() const noexcept { return error_; }
    /// Of calls that succeeded.
    std::size_t count(std::string_view function) const;

    Ledger contexts; ///< references to certificates
    Ledger stores;
    Ledger modules;
    Ledger sids;
    Ledger files;

private:
    template <class Function>
    struct Rule;
    template <class Function>
    void watch(const char* dll, const char* function, Rule<Function> rule);

    void watchStores();
    void watchCertificates();
    void watchProperties();
    void watchSecurity();
    void watchModules();
    void watchFiles();

    bool strikes(WindowsCall call);

    std::vector<std::shared_ptr<void>> hooks_;
    std::vector<WindowsCall> calls_;
    std::vector<std::string> succeeded_;
    std::size_t failing_ = 0;
    DWORD error_ = ERROR_SUCCESS;
};

} // namespace torture
