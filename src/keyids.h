// The ids of a token's private keys.
#pragma once

#include "buffer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace pkcs11::certstoreupdater {

/// The CKA_IDs of private keys, searched from the front. An absent id, a null buffer, matches
/// absent ones only.
class KeyIds {
public:
    void add(buffer::Buffer<unsigned char> id) {
        marks_.push_back(markOf(id));
        try {
            ids_.push_back(std::move(id));
        } catch (...) {
            marks_.pop_back();
            throw;
        }
    }

    bool contain(const buffer::Buffer<unsigned char>& id) const noexcept {
        const std::uint64_t wanted = markOf(id);
        auto mark = marks_.begin();
        while ((mark = std::find(mark, marks_.end(), wanted)) != marks_.end()) {
            const auto& found = ids_[static_cast<std::size_t>(mark - marks_.begin())];
            // Contents alone do not tell an absent id from an empty one.
            if (id == found && id.isNull() == found.isNull())
                return true;
            ++mark;
        }
        return false;
    }

private:
    /// The last eight bytes of the id, or all of a shorter one: there ids differ, be they hashes
    /// or counters. The marks lie side by side, each id in a block of its own, so the search
    /// reads an id only where its mark is the wanted one; with 10,000 ids, fetching each would
    /// take half of the time.
    static std::uint64_t markOf(const buffer::Buffer<unsigned char>& id) noexcept {
        std::uint64_t mark = 0;
        const std::size_t size = std::min(id.size(), sizeof mark);
        if (size != 0)
            std::memcpy(&mark, id.end() - size, size);
        return mark;
    }

    std::vector<std::uint64_t> marks_;
    std::vector<buffer::Buffer<unsigned char>> ids_; ///< in the same order
};

} // namespace pkcs11::certstoreupdater
