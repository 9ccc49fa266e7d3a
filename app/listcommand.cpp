// list: what is registered for the CSP.
#include "commands.h"

#include "certificatetext.h"
#include "cspstore.h"
#include "output.h"
#include "text.h"

namespace updater {

ExitCode listRegistered(const Options& options) {
    CspStore store(options.store, options.csp);
    Table table({L"CONTAINER", L"ENTRY", L"VALID", L"SUBJECT"});
    for (const auto& [container, item] : store.list())
        table.add({printable(toString(container)),
                   store.isOurs(container, item.certificate) ? L"ours" : L"not ours",
                   validityText(item.certificate), subjectText(item.certificate)});
    if (table.empty())
        writeMessage(L"nothing is registered for the CSP \"" + options.csp + L"\" in the store \"" +
                     options.store + L"\"");
    else
        writeData(table.text());
    return ExitCode::done;
}

} // namespace updater
