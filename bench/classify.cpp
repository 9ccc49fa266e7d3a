// Telling certificates with a private key from those without.
#include "comparison.h"
#include "keyids.h"

#include <cstring>
#include <random>

namespace bench {

namespace {

using Octets = std::vector<unsigned char>;

/// As a token has them that takes the hash of the public key for an id.
std::vector<Octets> randomIds(std::size_t count) {
    std::mt19937_64 random(1); // the same ids in every run
    std::vector<Octets> ids(count, Octets(20));
    for (Octets& id : ids)
        for (unsigned char& byte : id)
            byte = static_cast<unsigned char>(random());
    return ids;
}

void addClassification(std::size_t count) {
    const std::vector<Octets> ids = randomIds(count);
    pkcs11::certstoreupdater::KeyIds keyIds;
    std::vector<buffer::Buffer<unsigned char>> buffers;
    for (const Octets& id : ids) {
        buffers.emplace_back(id.data(), id.size());
        keyIds.add(buffers.back());
    }

    // Every certificate has a key, and they come in the same order.
    const std::size_t countedRuns = count <= 1'000 ? 1 : 0;
    compare(
        "classify", library, count,
        [buffers, keyIds] {
            std::size_t found = 0;
            for (const auto& id : buffers)
                found += keyIds.contain(id) ? 1u : 0u;
            return found;
        },
        countedRuns);
    compare(
        "classify", "scan with memcmp", count,
        [ids] {
            std::size_t found = 0;
            for (const Octets& id : ids)
                for (const Octets& keyId : ids)
                    if (id.size() == keyId.size() &&
                        std::memcmp(id.data(), keyId.data(), id.size()) == 0) {
                        ++found;
                        break;
                    }
            return found;
        },
        countedRuns);
}

} // namespace

void addClassifying() {
    for (const std::size_t count : {10u, 100u, 1'000u, 10'000u})
        addClassification(count);
}

} // namespace bench
