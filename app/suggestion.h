// "Did you mean ...?"
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace updater {

/// The name that somebody meant who typed another one: the nearest by slips of typing (a character
/// too many, too few, another one, or two that changed places; letter case counts for nothing), if
/// no more than a third of it is slips; of several the first.
std::optional<std::string> nearest(const std::string& typed, const std::vector<std::string>& names);

} // namespace updater
