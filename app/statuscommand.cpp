// certstoreupdate status: token and store side by side.
#include "commands.h"

#include "certificatejson.h"
#include "cspstore.h"
#include "namechecks.h"
#include "plan.h"
#include "text.h"

#include <algorithm>

namespace updater {

namespace {

using pkcs11::certstoreupdater::CertListPackage;

struct StateWords {
    State state;
    const wchar_t* text;
    const char* forPrograms;
    Colour colour;
};

constexpr StateWords stateWords[] = {
    {State::inStep, L"in step", "in-step", Colour::good},
    {State::missing, L"missing", "missing", Colour::attention},
    {State::changed, L"changed", "changed", Colour::attention},
    {State::boundOtherwise, L"bound otherwise", "bound-otherwise", Colour::attention},
    {State::notOurs, L"not ours", "not-ours", Colour::bad},
    {State::duplicate, L"duplicate", "duplicate", Colour::faint},
    {State::stale, L"stale", "stale", Colour::attention},
    {State::unusable, L"unusable", "unusable", Colour::bad},
    {State::foreign, L"foreign", "foreign", Colour::faint},
    {State::tokenOnly, L"token only", "token-only", Colour::faint},
};

const StateWords& wordsOf(State state) {
    return *std::find_if(std::begin(stateWords), std::end(stateWords),
                         [=](const StateWords& words) { return words.state == state; });
}

struct CertificateClass {
    const wchar_t* name;
    const char* forPrograms;
    CertMap CertListPackage::*certificates;
};

constexpr CertificateClass classes[] = {
    {L"self-signed", "self-signed", &CertListPackage::selfSignedCerts},
    {L"CA", "ca", &CertListPackage::caCerts},
    {L"with key", "with-key", &CertListPackage::certsWithPrivateKey},
    {L"other", "other", &CertListPackage::otherCerts},
};

/// The class of a certificate of the token, or null.
const CertificateClass* classOf(const Row& row, const CertListPackage& package) {
    const auto* const found = std::find_if(
        std::begin(classes), std::end(classes), [&](const CertificateClass& candidate) {
            const CertMap& members = package.*candidate.certificates;
            const auto member = members.find(row.container);
            return member != members.end() &&
                   isSame(member->second.certificate, row.onToken->certificate);
        });
    return found == std::end(classes) ? nullptr : found;
}

/// Adds what is on the token and not wanted: to the row of an entry that is the same certificate,
/// else a row of its own.
void addTokenOnly(std::vector<Row>& rows, const CertListPackage& package, const WantedMap& wanted) {
    for (const CertificateClass& kind : classes)
        for (const auto& [container, item] : package.*kind.certificates) {
            const auto same = wanted.find(container);
            if (same != wanted.end() && isSame(same->second.item.certificate, item.certificate))
                continue;
            const auto holdsIt = [&name = container, &cert = item.certificate](const Row& row) {
                return row.container == name && row.inStore && isSame(*row.inStore, cert);
            };
            const auto entry = std::find_if(rows.begin(), rows.end(), holdsIt);
            if (entry == rows.end())
                rows.push_back({container, State::tokenOnly, item, std::nullopt});
            else
                entry->onToken = item;
        }
}

std::vector<Row> rowsOf(const TokenContents& token, const Selection& selection,
                        CspRegistry& store) {
    const WantedMap wanted = wantedOf(token, selection);
    std::vector<Row> rows = compare(wanted, store);
    addTokenOnly(rows, *token.classes, wanted);
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row& a, const Row& b) { return a.container < b.container; });
    return rows;
}

/// What the store has for a row, or null.
const asn1::Certificate* storedCertificate(const Row& row) {
    if (row.inStore)
        return &*row.inStore;
    const bool isThere = row.state == State::inStep || row.state == State::notOurs ||
                         row.state == State::boundOtherwise || row.state == State::duplicate;
    return isThere ? &row.onToken->certificate : nullptr;
}

std::wstring storeText(const Row& row) {
    const asn1::Certificate* const stored = storedCertificate(row);
    if (!stored)
        return L"-";
    return row.onToken && isSame(row.onToken->certificate, *stored) ? L"the same"
                                                                    : certificateText(*stored);
}

std::vector<Span> cellsOf(const Row& row, const CertListPackage& package) {
    const StateWords& state = wordsOf(row.state);
    const CertificateClass* const kind = row.onToken ? classOf(row, package) : nullptr;
    return {{state.text, state.colour},
            {toString(row.container)},
            {kind ? kind->name : L"-"},
            {row.onToken ? friendlyNameText(*row.onToken) : L"-"},
            {row.onToken ? certificateText(row.onToken->certificate) : L"-"},
            {storeText(row)}};
}

bool isDifference(const Row& row) {
    return row.state == State::missing || row.state == State::changed ||
           row.state == State::boundOtherwise || row.state == State::notOurs ||
           row.state == State::stale;
}

Json toJson(const Row& row, const TokenContents& token) {
    const CertificateClass* const kind = row.onToken ? classOf(row, *token.classes) : nullptr;
    const asn1::Certificate* const stored = storedCertificate(row);
    const auto withKey = token.withKey.find(row.container);
    return {{"state", wordsOf(row.state).forPrograms},
            {"container", toUtf8(toString(row.container))},
            {"class", kind ? Json(kind->forPrograms) : Json()},
            {"hasKey", row.onToken && withKey != token.withKey.end() &&
                           isSame(withKey->second.certificate, row.onToken->certificate)},
            {"friendlyName", row.onToken ? Json(toUtf8(friendlyNameText(*row.onToken))) : Json()},
            {"onToken", row.onToken ? updater::toJson(row.onToken->certificate) : Json()},
            {"inStore", stored ? updater::toJson(*stored) : Json()}};
}

} // namespace

void showStatus(const Options& options, Output& output) {
    warnOfMistypedNames(options, output);
    const ModuleFile module(options.module, options.signing);
    const TokenContents token = readToken(module, options.pin, Reading::allClasses, output);
    CspStore store(options.store, options.csp);
    const std::vector<Row> rows = rowsOf(token, options.selection, store);

    Table table{L"STATE",         L"CONTAINER",    L"CLASS",
                L"FRIENDLY NAME", L"ON THE TOKEN", L"IN THE STORE"};
    Json& entries = output.member("entries") = Json::array();
    for (const Row& row : rows) {
        table.add(cellsOf(row, *token.classes));
        entries.push_back(toJson(row, token));
    }
    if (table.empty())
        output.note(L"there is no certificate on the token, and none in the store for the CSP");
    else
        output.show(table);
    if (options.exitCode && std::any_of(rows.begin(), rows.end(), isDifference))
        output.noteDifference();
    for (const Row& row : rows)
        if (row.state == State::unusable)
            output.fail(refusedByWindows(nameText(row.container, row.onToken->certificate)));
}

} // namespace updater
