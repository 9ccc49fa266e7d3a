// certstoreupdate grant: read access for sandboxed application packages.
#include "commands.h"

#include "files.h"
#include "text.h"

#include "mspermissions.h"

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>

#include <windows.h>

#include <vector>

namespace updater {

namespace {

/// Whether a path's permissions are protected from those of the folders above it; false if nobody
/// can tell.
bool isProtected(const std::wstring& path) {
    try {
        const SecurityDescriptorDacl dacl(path);
        SECURITY_DESCRIPTOR_CONTROL control = 0;
        DWORD revision = 0;
        return GetSecurityDescriptorControl(dacl.getSecurityDescriptor(), &control, &revision) &&
               control & SE_DACL_PROTECTED;
    } catch (const korv::GenericEvent&) {
        return false;
    }
}

/// Adds the protected ones of the paths that granting comes to: the path and so many levels of
/// what is in it. What cannot be listed is passed over; granting reports it.
void addProtected(const boost::filesystem::path& path, int levels,
                  std::vector<std::wstring>& found) {
    if (isProtected(path.native()))
        found.push_back(path.native());
    boost::system::error_code ignored;
    if (levels == 0 || !boost::filesystem::is_directory(path, ignored))
        return;
    boost::filesystem::directory_iterator entry(path, ignored);
    for (; entry != boost::filesystem::directory_iterator(); entry.increment(ignored))
        addProtected(entry->path(), levels - 1, found);
}

/// Warns of the paths whose permissions are no longer protected: granting writes them without that
/// mark.
class ProtectionWatch {
public:
    ProtectionWatch(const std::wstring& path, bool recursive, Output& output) : output_(output) {
        constexpr int levelsGranted = 2;
        addProtected(path, recursive ? levelsGranted : 0, protected_);
    }

    void warn() const {
        for (const std::wstring& path : protected_)
            if (!isProtected(path))
                output_.warn(
                    L"\"" + path +
                    L"\" was protected from the permissions of the folders above it and is "
                    L"not any more; icacls with /inheritance:d protects it again");
    }

private:
    Output& output_;
    std::vector<std::wstring> protected_;
};

void warnOfLink(const std::wstring& path, bool recursive, Output& output) {
    const LinkTo link = linkAt(path);
    if (link == LinkTo::nothing)
        return;
    if (link == LinkTo::folder && recursive)
        output.warn(
            L"\"" + path +
            L"\" is a link: it was granted itself, and so was what is in the folder that it "
            L"leads to, but not that folder");
    else
        output.warn(L"\"" + path +
                    L"\" is a link: it was granted itself, what it leads to was not");
}

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
        const ProtectionWatch protection(path, options.recursive, output);
        try {
            grant(path, options.recursive, packages);
            output.report(L"granted  " + path);
            warnOfLink(path, options.recursive, output);
        } catch (const Failure& failure) {
            output.fail(failure);
            granted = false;
        }
        protection.warn();
        paths.push_back({{"path", toUtf8(path)}, {"granted", granted}});
    }
}

} // namespace updater
