// The certificates that the benchmark works on.
#include "corpus.h"

#include "cacertificates.h"

#include <stdexcept>

namespace bench {

namespace {

bool allAccept(Der certificate) {
    for (Peer* peer : allPeers())
        if (!peer->decode(certificate))
            return false;
    return true;
}

/// What is compared is the same work only if it has the same result.
void requireAgreement(Der certificate, const std::string& file) {
    Facts expected;
    certstoreupdaterPeer().read(certificate, expected);
    for (Peer* peer : allPeers()) {
        Facts facts;
        if (peer->canRead() && (!peer->read(certificate, facts) || !facts.agreesWith(expected)))
            throw std::runtime_error(peer->name() + " reads something else from " + file);
    }
}

std::vector<Der> select() {
    std::vector<Der> selected;
    for (const asn1_test::CaCertificate& certificate : asn1_test::caCertificates())
        if (allAccept(certificate.der)) {
            requireAgreement(certificate.der, certificate.file);
            selected.emplace_back(certificate.der);
        }
    if (selected.size() < 100)
        throw std::runtime_error("hardly any certificates are accepted by all libraries");
    return selected;
}

} // namespace

const std::vector<Der>& corpus() {
    static const std::vector<Der> all = select();
    return all;
}

std::size_t averageSize() {
    std::size_t bytes = 0;
    for (const Der certificate : corpus())
        bytes += certificate.size();
    return bytes / corpus().size();
}

} // namespace bench
