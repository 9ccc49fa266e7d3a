// sync: brings the store into step with the token.
#include "commands.h"

#include "certificatetext.h"
#include "cspstore.h"
#include "output.h"
#include "synchronise.h"
#include "text.h"
#include "token.h"

namespace updater {

namespace {

using Kind = SyncEvent::Kind;

std::wstring subjectOf(const SyncEvent& event) {
    return L"\"" + subjectText(event.certificate) + L"\" (" + toString(event.container) + L")";
}

std::wstring changeLine(const SyncEvent& event) {
    const wchar_t* const verb = event.kind == Kind::added       ? L"added        "
                                : event.kind == Kind::boundAnew ? L"bound anew   "
                                                                : L"removed      ";
    return verb + printable(toString(event.container)) + L"  " +
           certificateText(event.certificate) + L"\n";
}

std::wstring problemLine(const SyncEvent& event) {
    switch (event.kind) {
    case Kind::notOurs:
        return L"the certificate " + subjectOf(event) +
               L" is in the store, but this program did not register it for this CSP, so it is "
               L"left alone; to have it registered, remove it with certmgr.msc and run sync again";
    case Kind::addRefused:
        return L"the store did not take the certificate " + subjectOf(event) +
               L"; if you were asked and declined, run sync again";
    case Kind::removalRefused:
        return L"the store kept the certificate " + subjectOf(event) +
               L"; if you were asked and declined, run sync again";
    default:
        return event.failure->line();
    }
}

class Report {
public:
    void add(const SyncEvent& event) {
        if (event.isChange()) {
            ++changes_;
            writeData(changeLine(event));
            return;
        }
        writeMessage(problemLine(event));
        if (code_ == ExitCode::done)
            code_ = event.failure ? event.failure->code() : ExitCode::incomplete;
    }

    ExitCode finish() const {
        if (code_ == ExitCode::done && changes_ == 0)
            writeData(L"nothing to do: the store is in step with the token\n");
        return code_;
    }

private:
    std::size_t changes_ = 0;
    ExitCode code_ = ExitCode::done;
};

} // namespace

ExitCode synchroniseStore(const Options& options) {
    CspStore store(options.store, options.csp);
    const TokenContents token = readToken(options.module, options.pin, Reading::withKeyOnly);

    Report report;
    synchronise(token.withKey, store, [&](const SyncEvent& event) { report.add(event); });
    const ExitCode code = report.finish();
    if (token.unloadFailure)
        throw *token.unloadFailure;
    return code;
}

} // namespace updater
