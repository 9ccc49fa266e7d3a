// Looking for a secret in all of the process's memory.
#include "memorysearch.h"

#include <windows.h>

#include <cstring>
#include <initializer_list>

namespace hardening {

namespace {

constexpr unsigned char disguise = 0xA5;

bool isAt(const Disguised& secret, const unsigned char* place, std::size_t stride) {
    for (std::size_t i = 1; i != secret.size(); ++i)
        for (std::size_t filler = 1; filler != stride + 1; ++filler) {
            const std::size_t offset = (i - 1) * stride + filler;
            const unsigned char wanted = filler == stride ? secret[i] : 0;
            if (place[offset] != wanted)
                return false;
        }
    return true;
}

std::size_t timesIn(const Disguised& secret, const unsigned char* first, std::size_t size) {
    std::size_t times = 0;
    const unsigned char* const end = first + size;
    for (const unsigned char* place = first; place != end; ++place) {
        place = static_cast<const unsigned char*>(
            std::memchr(place, secret[0], static_cast<std::size_t>(end - place)));
        if (!place)
            break;
        for (const std::size_t stride : {std::size_t{1}, std::size_t{2}}) {
            const std::size_t needed = (secret.size() - 1) * stride + 1;
            if (needed <= static_cast<std::size_t>(end - place) && isAt(secret, place, stride))
                ++times;
        }
    }
    return times;
}

bool isReadable(const MEMORY_BASIC_INFORMATION& region) {
    return region.State == MEM_COMMIT && !(region.Protect & (PAGE_NOACCESS | PAGE_GUARD)) &&
           region.Protect != PAGE_EXECUTE;
}

} // namespace

Disguised::Disguised(unsigned seed, std::size_t size) : size_(size) {
    for (std::size_t i = 0; i != size; ++i) {
        seed = seed * 1664525u + 1013904223u;
        bytes_[i] = static_cast<unsigned char>((seed >> 24) | 1u) ^ disguise;
    }
}

unsigned char Disguised::operator[](std::size_t index) const noexcept {
    return bytes_[index] ^ disguise;
}

void Disguised::reveal(unsigned char* to) const noexcept {
    for (std::size_t i = 0; i != size_; ++i)
        to[i] = (*this)[i];
}

std::size_t timesInMemory(const Disguised& secret) {
    std::size_t times = 0;
    MEMORY_BASIC_INFORMATION region{};
    for (const unsigned char* place = nullptr; VirtualQuery(place, &region, sizeof region) != 0;) {
        const auto* const first = static_cast<const unsigned char*>(region.BaseAddress);
        if (isReadable(region))
            times += timesIn(secret, first, region.RegionSize);
        place = first + region.RegionSize;
    }
    return times;
}

} // namespace hardening
