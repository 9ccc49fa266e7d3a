// status: token and store side by side.
#include "commands.h"

#include "certificatetext.h"
#include "cspstore.h"
#include "output.h"
#include "plan.h"
#include "text.h"
#include "token.h"

#include <algorithm>

namespace updater {

namespace {

using pkcs11::certstoreupdater::CertListPackage;

const wchar_t* nameOf(State state) {
    switch (state) {
    case State::inStep:
        return L"in step";
    case State::missing:
        return L"missing";
    case State::changed:
        return L"changed";
    case State::boundOtherwise:
        return L"bound otherwise";
    case State::notOurs:
        return L"not ours";
    case State::duplicate:
        return L"duplicate";
    case State::stale:
        return L"stale";
    case State::foreign:
        return L"foreign";
    case State::tokenOnly:
        return L"token only";
    }
    return L"";
}

struct CertificateClass {
    const wchar_t* name;
    CertMap CertListPackage::*certificates;
};

constexpr CertificateClass classes[] = {
    {L"self-signed", &CertListPackage::selfSignedCerts},
    {L"CA", &CertListPackage::caCerts},
    {L"with key", &CertListPackage::certsWithPrivateKey},
    {L"other", &CertListPackage::otherCerts},
};

const wchar_t* classOf(const Row& row, const CertListPackage& package) {
    for (const auto& [name, certificates] : classes) {
        const CertMap& members = package.*certificates;
        const auto found = members.find(row.container);
        if (found != members.end() && isSame(found->second.certificate, row.onToken->certificate))
            return name;
    }
    return L"";
}

std::vector<Row> tokenOnlyRows(const CertListPackage& package, const CertMap& withKey) {
    std::vector<Row> rows;
    for (const CertificateClass& kind : classes)
        for (const auto& [container, item] : package.*kind.certificates) {
            const auto wanted = withKey.find(container);
            if (wanted == withKey.end() || !isSame(wanted->second.certificate, item.certificate))
                rows.push_back({container, State::tokenOnly, item, std::nullopt});
        }
    return rows;
}

std::wstring storeText(const Row& row) {
    if (row.inStore)
        return certificateText(*row.inStore);
    const bool isThere = row.state == State::inStep || row.state == State::notOurs ||
                         row.state == State::boundOtherwise || row.state == State::duplicate;
    return isThere ? L"the same" : L"-";
}

std::vector<std::wstring> cellsOf(const Row& row, const CertListPackage& package) {
    return {nameOf(row.state),
            printable(toString(row.container)),
            row.onToken ? classOf(row, package) : L"-",
            row.onToken ? printable(toString(row.onToken->label)) : L"-",
            row.onToken ? certificateText(row.onToken->certificate) : L"-",
            storeText(row)};
}

} // namespace

ExitCode showStatus(const Options& options) {
    CspStore store(options.store, options.csp);
    const TokenContents token = readToken(options.module, options.pin, Reading::allClasses);

    std::vector<Row> rows = compare(token.withKey, store);
    for (Row& row : tokenOnlyRows(*token.classes, token.withKey))
        rows.push_back(std::move(row));
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row& a, const Row& b) { return a.container < b.container; });

    Table table({L"STATE", L"CONTAINER", L"CLASS", L"LABEL", L"ON THE TOKEN", L"IN THE STORE"});
    for (const Row& row : rows)
        table.add(cellsOf(row, *token.classes));
    if (table.empty())
        writeMessage(L"there is no certificate on the token, and none in the store for the CSP");
    else
        writeData(table.text());
    if (token.unloadFailure)
        throw *token.unloadFailure;
    return ExitCode::done;
}

} // namespace updater
