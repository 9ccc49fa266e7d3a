// certstoreupdate list: what is registered for a CSP, or for all.
#include "commands.h"

#include "certificatejson.h"
#include "csps.h"
#include "cspstore.h"
#include "namechecks.h"
#include "text.h"

namespace updater {

namespace {

struct Entry {
    std::wstring csp;
    std::wstring container;
    bool isOurs;
    asn1::Certificate certificate;
};

std::vector<Entry> entriesOf(const std::wstring& store, const std::wstring& csp) {
    CspStore registry(store, csp);
    std::vector<Entry> entries;
    for (const auto& [container, item] : registry.list())
        entries.push_back({csp, toString(container), registry.isOurs(container, item.certificate),
                           item.certificate});
    return entries;
}

Json toJson(const Entry& entry) {
    return {{"csp", toUtf8(entry.csp)},
            {"container", toUtf8(entry.container)},
            {"ours", entry.isOurs},
            {"certificate", updater::toJson(entry.certificate)}};
}

std::vector<Span> cellsOf(const Entry& entry) {
    return {{entry.container},
            entry.isOurs ? Span{L"ours"} : Span{L"not ours", Colour::attention},
            {validityText(entry.certificate)},
            {subjectText(entry.certificate)}};
}

Table tableOf(const std::vector<Entry>& entries, bool withCsp) {
    Table table = withCsp ? Table{L"CSP", L"CONTAINER", L"ENTRY", L"VALID", L"SUBJECT"}
                          : Table{L"CONTAINER", L"ENTRY", L"VALID", L"SUBJECT"};
    for (const Entry& entry : entries) {
        std::vector<Span> cells = cellsOf(entry);
        if (withCsp)
            cells.insert(cells.begin(), {entry.csp});
        table.add(std::move(cells));
    }
    return table;
}

} // namespace

void listRegistered(const Options& options, Output& output) {
    const bool ofAll = options.csp.empty();
    std::vector<Entry> entries;
    warnOfMistypedNames(options, output);
    for (const std::wstring& csp : ofAll ? installedCsps() : std::vector{options.csp})
        for (Entry& entry : entriesOf(options.store, csp))
            entries.push_back(std::move(entry));

    Json& json = output.member("entries") = Json::array();
    for (const Entry& entry : entries)
        json.push_back(toJson(entry));
    if (!entries.empty())
        output.show(tableOf(entries, ofAll));
    else
        output.note(
            L"nothing is registered for " +
            (ofAll ? std::wstring(L"any installed CSP") : L"the CSP \"" + options.csp + L"\"") +
            L" in the store \"" + options.store + L"\"");
}

} // namespace updater
