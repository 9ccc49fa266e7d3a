// Decoding certificates, and reading them.
#include "comparison.h"
#include "corpus.h"

#include "certbuilder.h"

namespace bench {

namespace {

/// \param extensions how many it has; with each, a certificate becomes longer by what has to be
///   looked at one by one
testsupport::Bytes certificateWith(unsigned extensions) {
    using testsupport::operator+;
    testsupport::Bytes list;
    for (unsigned i = 0; i != extensions; ++i)
        list = list + testsupport::extension("1.3.6.1.4.1.99999." + std::to_string(i),
                                             testsupport::octetString(testsupport::Bytes(20)));
    return testsupport::CertBuilder()
        .rawExtensions(testsupport::explicitly(3, testsupport::element(0x30, list)))
        .build();
}

void addGrowing(unsigned extensions) {
    const testsupport::Bytes certificate = certificateWith(extensions);
    for (Peer* peer : allPeers())
        if (peer->decode(certificate))
            compare("decodegrowing", peer->name(), certificate.size(),
                    [peer, certificate] { return peer->decode(certificate); });
}

} // namespace

void addDecoding() {
    for (Peer* peer : allPeers()) {
        compare(
            "decode", peer->name(), 1,
            [peer, cycle = Cycle()]() mutable { return peer->decode(cycle.next()); },
            corpus().size());
        if (peer->canRead())
            compare(
                "read", peer->name(), 1,
                [peer, cycle = Cycle()]() mutable {
                    Facts facts;
                    peer->read(cycle.next(), facts);
                    return facts.nameLength;
                },
                corpus().size());
    }
    for (const unsigned extensions : {1u, 10u, 100u, 1'000u})
        addGrowing(extensions);
}

} // namespace bench
