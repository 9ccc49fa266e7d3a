// Decoding certificates, and reading them.
#include "comparison.h"
#include "corpus.h"

namespace bench {

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
}

} // namespace bench
