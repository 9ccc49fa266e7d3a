// When a store was last written to.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace testsupport {

/// The time of the last change of each registry key of a store of the current user, by the key's
/// path within the store. Any write, even of what is there already, changes a time.
std::map<std::wstring, std::uint64_t> registryTimesOf(const std::wstring& store);

} // namespace testsupport
