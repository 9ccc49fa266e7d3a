// Which of the token's certificates belong into the store.
#pragma once

#include "registry.h"
#include "token.h"

namespace updater {

/// Those whose private keys are on the token belong there always.
struct Selection {
    bool authorities = false; ///< also those of certification authorities
    bool others = false;      ///< also those that are neither self-signed nor an authority's

    Reading reading() const {
        return authorities || others ? Reading::allClasses : Reading::withKeyOnly;
    }
};

/// \param contents with all classes if the selection asks for more than those with keys. Of several
///   certificates with one container the first is taken, those with keys before authorities and
///   these before others.
WantedMap wantedOf(const TokenContents& contents, const Selection& selection);

} // namespace updater
