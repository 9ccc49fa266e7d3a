// The installed CSPs.
#include "csps.h"

#include "suggestion.h"
#include "text.h"

#include "certstorehelper.h"

#include <algorithm>

namespace updater {

std::vector<std::wstring> installedCsps() {
    return during({Activity::Kind::listCsps, L""},
                  [] { return std::move(*pkcs11::certstoreupdater::CertStoreHelper::listCSPs()); });
}

std::optional<std::wstring> complaintAboutCsp(const std::wstring& csp, Output& output) {
    std::vector<std::wstring> installed;
    try {
        installed = installedCsps();
    } catch (const Failure& failure) {
        output.warn(L"it is not known whether the CSP \"" + csp + L"\" is installed: " +
                    failure.line());
        return std::nullopt;
    }
    if (std::find(installed.begin(), installed.end(), csp) != installed.end())
        return std::nullopt;
    std::vector<std::string> names;
    for (const std::wstring& name : installed)
        names.push_back(toUtf8(name));
    const auto meant = nearest(toUtf8(csp), names);
    return L"no CSP \"" + csp + L"\" is installed, so Windows will not find the keys; " +
           (meant ? L"did you mean \"" + toWide(*meant) + L"\"?"
                  : std::wstring(L"\"certstoreupdate csps\" lists those that are"));
}

} // namespace updater
