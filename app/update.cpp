// Brings the store into step and tells what was done.
#include "update.h"

#include "certificatejson.h"
#include "cspstore.h"
#include "progress.h"
#include "rehearsal.h"
#include "storelock.h"
#include "synchronise.h"
#include "text.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

namespace updater {

namespace {

using Kind = SyncEvent::Kind;

struct ChangeWords {
    Kind kind;
    const wchar_t* done;
    const wchar_t* planned;
    const char* forPrograms;
    const char* plannedForPrograms;
    Colour colour;
};

constexpr ChangeWords changeWords[] = {
    {Kind::added, L"added", L"to add", "added", "would-add", Colour::good},
    {Kind::rebound, L"rebound", L"to rebind", "rebound", "would-rebind", Colour::attention},
    {Kind::removed, L"removed", L"to remove", "removed", "would-remove", Colour::bad},
};

const ChangeWords& wordsOf(Kind change) {
    return *std::find_if(std::begin(changeWords), std::end(changeWords),
                         [=](const ChangeWords& words) { return words.kind == change; });
}

const char* problemName(Kind problem) {
    switch (problem) {
    case Kind::notOurs:
        return "not-ours";
    case Kind::addRefused:
        return "add-refused";
    case Kind::removalRefused:
        return "removal-refused";
    default:
        return "unusable";
    }
}

std::wstring nameOf(const SyncEvent& event) {
    return nameText(event.container, event.certificate);
}

Failure failureOf(const SyncEvent& event) {
    if (event.failure)
        return *event.failure;
    const std::wstring certificate = nameOf(event);
    switch (event.kind) {
    case Kind::unusable:
        return refusedByWindows(certificate);
    case Kind::notOurs:
        return {ExitCode::incomplete,
                L"the certificate " + certificate +
                    L" is in the store, but this program did not register it for this CSP, or was "
                    L"killed while it did, so it is left alone; to have it registered, remove it "
                    L"with certmgr.msc and run sync again"};
    case Kind::addRefused:
        return {ExitCode::incomplete, L"the store did not take the certificate " + certificate +
                                          L"; if you were asked and declined, run sync again"};
    default:
        return {ExitCode::incomplete, L"the store kept the certificate " + certificate +
                                          L"; if you were asked and declined, run sync again"};
    }
}

/// Gathers what a synchronisation does.
class Report {
public:
    Report(bool planned, Output& output, Json& result)
        : planned_(planned), output_(output), result_(result) {
        result_ = {{"dryRun", planned}, {"changes", Json::array()}, {"problems", Json::array()}};
    }

    void add(const SyncEvent& event) {
        if (event.isChange())
            addChange(event);
        else
            addProblem(event);
    }

    /// \param complete whether nothing was left out
    void finish(bool complete) {
        output_.report(changes_);
        for (const Failure& problem : problems_)
            output_.fail(problem);
        if (!changes_.empty())
            output_.report(summary());
        else if (complete && problems_.empty())
            output_.report(L"nothing to do: the store is in step with the token");
    }

    bool hasChanges() const { return !changes_.empty(); }

private:
    void addChange(const SyncEvent& event) {
        const ChangeWords& words = wordsOf(event.kind);
        output_.detail((planned_ ? words.planned : words.done) + std::wstring(L" ") +
                       nameOf(event));
        ++counts_[event.kind];
        changes_.add({{planned_ ? words.planned : words.done, words.colour},
                      {toString(event.container)},
                      {certificateText(event.certificate)}});
        result_["changes"].push_back(
            {{"change", planned_ ? words.plannedForPrograms : words.forPrograms},
             {"container", toUtf8(toString(event.container))},
             {"certificate", toJson(event.certificate)}});
    }

    void addProblem(const SyncEvent& event) {
        problems_.push_back(failureOf(event));
        result_["problems"].push_back({{"problem", problemName(event.kind)},
                                       {"container", toUtf8(toString(event.container))},
                                       {"certificate", toJson(event.certificate)}});
    }

    std::wstring summary() const {
        std::wstring text;
        for (const auto& [kind, count] : counts_)
            text += (text.empty() ? L"" : L", ") + std::to_wstring(count) + L" " +
                    (planned_ ? wordsOf(kind).planned : wordsOf(kind).done);
        return planned_ ? text + L"; nothing was changed" : text;
    }

    bool planned_;
    Output& output_;
    Json& result_;
    Table changes_;
    std::map<Kind, std::size_t> counts_;
    std::vector<Failure> problems_;
};

} // namespace

bool update(const Options& options, const WantedMap& wanted, const Interruption& interruption,
            Output& output, Json& result) {
    // What changes nothing waits for nobody.
    std::optional<StoreLock> lock;
    if (!options.dryRun)
        lock.emplace(options.store, interruption, output);
    CspStore store(options.store, options.csp);
    Rehearsal rehearsal(store);
    CspRegistry& registry = options.dryRun ? static_cast<CspRegistry&>(rehearsal) : store;
    for (const std::wstring& entry : store.unreadable())
        output.warn(L"an entry of the store cannot be read and is left alone: " + entry);
    output.detail(L"comparing with the store \"" + options.store + L"\"");

    Report report(options.dryRun, output, result);
    const auto synchroniseWithProgress = [&] {
        Progress progress(output, wanted.size());
        return synchronise(wanted, registry,
                           {[&](const SyncEvent& event) { report.add(event); },
                            [&] {
                                progress.advance();
                                return !interruption.isRequested();
                            }});
    };
    bool complete = false;
    try {
        complete = synchroniseWithProgress();
    } catch (const Failure&) {
        report.finish(false);
        throw;
    }
    report.finish(complete);
    if (options.exitCode && report.hasChanges())
        output.noteDifference();
    return complete;
}

} // namespace updater
