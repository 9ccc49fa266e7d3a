// The installed CSPs.
#pragma once

#include "output.h"

#include <string>
#include <vector>

namespace updater {

/// Their names in the system's order.
/// \throws Failure
std::vector<std::wstring> installedCsps();

/// Warns if no CSP of this name is installed: its certificates' keys cannot be found then.
void warnUnlessInstalled(const std::wstring& csp, Output& output);

} // namespace updater
