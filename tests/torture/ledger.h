// What was handed out and not given back yet.
#pragma once

#include <cstddef>
#include <map>

namespace torture {

/// Counts references by their address.
class Ledger {
public:
    /// A null address is no reference.
    void take(const void* address) {
        if (address)
            ++held_[address];
    }
    void giveBack(const void* address) {
        if (!address)
            return;
        const auto found = held_.find(address);
        if (found == held_.end())
            ++strays_;
        else if (--found->second == 0)
            held_.erase(found);
    }

    std::size_t held() const {
        std::size_t sum = 0;
        for (const auto& [address, count] : held_)
            sum += count;
        return sum;
    }
    /// How often something was given back that was not held: released twice, or never taken.
    std::size_t strays() const { return strays_; }

    /// Gives back all that is held, each reference by a call of `release`.
    template <class Release>
    void settle(Release release) {
        for (const auto& [address, count] : held_)
            for (std::size_t i = 0; i != count; ++i)
                release(address);
        held_.clear();
    }

private:
    std::map<const void*, std::size_t> held_;
    std::size_t strays_ = 0;
};

} // namespace torture
