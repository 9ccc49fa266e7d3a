// The installed CSPs.
#pragma once

#include "output.h"

#include <optional>
#include <string>
#include <vector>

namespace updater {

/// Their names in the system's order.
/// \throws Failure
std::vector<std::wstring> installedCsps();

/// What is wrong with the name of a CSP that is not installed, whose keys Windows does not find;
/// nothing if it is, or if that cannot be told, which is warned of.
std::optional<std::wstring> complaintAboutCsp(const std::wstring& csp, Output& output);

} // namespace updater
