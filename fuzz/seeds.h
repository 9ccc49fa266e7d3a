// What fuzzing begins with: inputs that reach deep into each target.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

struct Seed {
    std::string name; ///< fit for a file
    std::vector<unsigned char> bytes;
};

/// The seeds of a target, at least one.
/// \throws std::logic_error if there is no such target
std::vector<Seed> seedsOf(std::string_view target);

} // namespace fuzz
