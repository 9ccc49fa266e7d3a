// Which of the token's certificates belong into the store.
#include "selection.h"

namespace updater {

namespace {

void add(WantedMap& wanted, const CertMap& certificates, bool haveKeys) {
    for (const auto& [container, item] : certificates)
        wanted.try_emplace(container, WantedItem{item, haveKeys});
}

} // namespace

WantedMap wantedOf(const TokenContents& contents, const Selection& selection) {
    WantedMap wanted;
    add(wanted, contents.withKey, true);
    if (selection.authorities)
        add(wanted, contents.classes->caCerts, false);
    if (selection.others)
        add(wanted, contents.classes->otherCerts, false);
    return wanted;
}

} // namespace updater
