// Says what crypt32 lacks here, a line each.
#include "lacks.h"

#include <cstdio>

int main() {
    const testsupport::Lacks& lacks = testsupport::lacks();
    const auto say = [](const char* what, bool isLacking) {
        std::printf("%-28s %s\n", what, isLacking ? "lacking" : "as documented");
    };
    say("own property ids", lacks.ownProperties);
    say("deletion while enumerating", lacks.deletionWhileEnumerating);
    say("writing at once", lacks.writingAtOnce);
    say("exact match", lacks.exactMatch);
}
