// Removes what is ours from a store.
#include "cleaning.h"

#include "cspstore.h"
#include "storelock.h"

namespace updater {

namespace {

struct Counts {
    std::size_t ours = 0;
    std::size_t notOurs = 0;
};

Counts countListed(CspStore& store) {
    Counts counts;
    for (const auto& [container, item] : store.list())
        ++(store.isOurs(container, item.certificate) ? counts.ours : counts.notOurs);
    return counts;
}

std::wstring containers(std::size_t count) {
    return std::to_wstring(count) + (count == 1 ? L" container" : L" containers");
}

void noteForeign(const Counts& counts, const Output& output) {
    if (counts.notOurs != 0)
        output.note(L"entries for " + containers(counts.notOurs) +
                    L" stay, because this program did not register them");
}

} // namespace

Json wouldClean(const Options& options, Output& output) {
    CspStore store(options.store, options.csp);
    const Counts counts = countListed(store);
    output.report(counts.ours != 0 ? L"to remove: what is registered for " +
                                         containers(counts.ours) + L"; nothing was changed"
                                   : L"nothing is there that this program registered");
    noteForeign(counts, output);
    return {{"dryRun", true},
            {"wouldRemoveContainers", counts.ours},
            {"foreignContainers", counts.notOurs}};
}

Json clean(const Options& options, const Interruption& interruption, Output& output) {
    const StoreLock lock(options.store, interruption, output);
    CspStore store(options.store, options.csp);
    const Counts before = countListed(store);
    store.clean();
    const Counts after = countListed(store);

    const std::size_t removed = before.ours > after.ours ? before.ours - after.ours : 0;
    if (removed != 0)
        output.report(L"removed what was registered for " + containers(removed));
    else if (after.ours == 0)
        output.report(L"nothing is left that this program registered");
    noteForeign(after, output);
    if (after.ours != 0)
        output.fail({ExitCode::incomplete,
                     L"the store kept what is registered for " + containers(after.ours) +
                         L"; if you were asked and declined, run clean again"});
    return {{"dryRun", false},
            {"removedContainers", removed},
            {"keptContainers", after.ours},
            {"foreignContainers", after.notOurs}};
}

} // namespace updater
