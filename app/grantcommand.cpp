// certstoreupdate grant: read access for sandboxed application packages.
#include "commands.h"

#include "files.h"
#include "text.h"

#include "mspermissions.h"

#include <boost/filesystem/exception.hpp>

namespace updater {

namespace {

void grant(const std::wstring& path, bool recursive, const AnyPackageSid& packages) {
    try {
        during({Activity::Kind::grant, path}, [&] {
            if (recursive)
                MSPermissionsUtils::addPermissionsRecursive(path, packages);
            else
                MSPermissionsUtils::addPermissions(path, packages);
        });
    } catch (const boost::filesystem::filesystem_error& error) {
        throw Failure(ExitCode::permissions,
                      L"not all of \"" + path + L"\" could be granted: " + error.path1().wstring() +
                          L" cannot be read: " +
                          systemErrorText(static_cast<DWORD>(error.code().value())));
    }
}

} // namespace

void grantAccess(const Options& options, Output& output) {
    Json& paths = output.member("paths") = Json::array();
    const auto packages =
        during({Activity::Kind::grant, options.paths.front()}, [] { return AnyPackageSid(); });
    for (const std::wstring& path : options.paths) {
        bool granted = true;
        try {
            grant(path, options.recursive, packages);
            output.report(L"granted  " + path);
        } catch (const Failure& failure) {
            output.fail(failure);
            granted = false;
        }
        paths.push_back({{"path", toUtf8(path)}, {"granted", granted}});
    }
}

} // namespace updater
