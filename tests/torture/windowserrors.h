// What the Windows functions that the library calls may answer when they fail.
#pragma once

#include "tally.h"
#include "windowscalls.h"

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace torture {

/// The error codes that a function is documented to leave for GetLastError, and those that the
/// library's own documentation names. ERROR_SUCCESS stands for a failure that leaves none.
/// \throws std::invalid_argument for a function without a row
const std::vector<DWORD>& documentedErrors(std::string_view function);

/// Does `run(n, error)` for the n-th of the calls, for every n and every documented error.
template <class Run>
void failEachCall(Tally& tally, const std::vector<WindowsCall>& calls, Run run) {
    for (std::size_t n = 1; n <= calls.size() && tally.goesOn(); ++n) {
        const std::string& function = calls[n - 1].function;
        const std::vector<DWORD>& errors = documentedErrors(function);
        tally.addCall(function, errors.size());
        for (const DWORD error : errors)
            tally.run("call " + std::to_string(n) + ", " + function + ", error " +
                          std::to_string(error),
                      [&] { run(n, error); });
    }
}

} // namespace torture
