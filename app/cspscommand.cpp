// certstoreupdate csps: the installed CSPs.
#include "commands.h"

#include "csps.h"
#include "text.h"

namespace updater {

void listCsps(const Options&, Output& output) {
    const std::vector<std::wstring> installed = installedCsps();
    Json& names = output.member("csps") = Json::array();
    for (const std::wstring& name : installed) {
        names.push_back(toUtf8(name));
        output.show(name);
    }
}

} // namespace updater
