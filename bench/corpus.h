// The certificates that the benchmark works on: those of Debian's ca-certificates.
#pragma once

#include "peers/peer.h"

namespace bench {

/// All that every library accepts and reads alike.
/// \throws std::runtime_error if two libraries read different things from a certificate
const std::vector<Der>& corpus();

/// How many bytes they have on average.
std::size_t averageSize();

/// Hands the certificates out one after the other, again and again, so that no library can get
/// used to one of them.
class Cycle {
public:
    Der next() {
        const std::vector<Der>& all = corpus();
        position_ = position_ + 1 == all.size() ? 0 : position_ + 1;
        return all[position_];
    }

private:
    std::size_t position_ = 0;
};

} // namespace bench
