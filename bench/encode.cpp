// Encoding certificates, and copying them.
#include "comparison.h"
#include "corpus.h"

#include <memory>
#include <stdexcept>

namespace bench {

namespace {

using HeldCertificates = std::vector<std::unique_ptr<Held>>;

std::shared_ptr<HeldCertificates> held(Peer& peer) {
    auto all = std::make_shared<HeldCertificates>();
    for (const Der certificate : corpus()) {
        all->push_back(peer.hold(certificate));
        const Peer::Abilities can = peer.abilities();
        if ((can.encode && all->back()->encode() != certificate.size()) ||
            (can.encodeAnew && all->back()->encodeAnew() != certificate.size()))
            throw std::runtime_error(peer.name() + " encodes another certificate");
    }
    return all;
}

template <class Work>
void addWork(const char* work, const Peer& peer, const std::shared_ptr<HeldCertificates>& held,
             Work perform) {
    compare(
        work, peer.name(), 1,
        [held, perform, position = std::size_t{0}]() mutable {
            position = position + 1 == held->size() ? 0 : position + 1;
            return perform(*(*held)[position]);
        },
        held->size());
}

} // namespace

void addEncoding() {
    for (Peer* peer : allPeers()) {
        const Peer::Abilities can = peer->abilities();
        if (!can.encode && !can.encodeAnew && !can.copy)
            continue;
        const auto certificates = held(*peer);
        if (can.encode)
            addWork("encode", *peer, certificates, [](Held& one) { return one.encode(); });
        if (can.encodeAnew)
            addWork("encodeanew", *peer, certificates, [](Held& one) { return one.encodeAnew(); });
        if (can.copy)
            addWork("copycertificate", *peer, certificates, [](Held& one) { return one.copy(); });
    }
}

} // namespace bench
