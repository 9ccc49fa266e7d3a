// Lets sandboxed application packages read files.
#pragma once

#include "anypackagesid.h"
#include "export.h"
#include "securitydescriptordacl.h"

#include <boost/filesystem/path.hpp>

/// Grants all application packages read access to files and directory trees.
///
/// Paths go to Windows as given; long ones need their `\\?\` prefix. Nothing is kept between
/// calls. Calls on different paths may run at once; on one path they race, as any two writers of
/// its permissions do.
///
/// Failures of Windows' security functions throw CertStoreUpdaterError_InvalidConfiguration with
/// "Method" = the function, without the suffix for wide characters, and "error" = the system's
/// error code, decimal.
class CERTSTOREUPDATER_API MSPermissionsUtils {
public:
    MSPermissionsUtils() = delete;

    /// Whether any entry of the list names `sid`. Neither the type of the entry nor its flags or
    /// rights matter: an entry that denies access counts, too.
    /// \throws CertStoreUpdaterError_InvalidConfiguration, "Method" "GetAclInformation" or
    ///   "GetAce" (with ERROR_INVALID_ACL if an entry reaches beyond the list)
    static bool hasPermissions(const SecurityDescriptorDacl& descriptor, const AnyPackageSid& sid);

    /// Puts an entry that allows `sid` to read in front of the DACL of a file or directory,
    /// unless some entry names `sid` already. Of a link, its own DACL is changed, not that of what
    /// it leads to. Owner, group and audit list stay, and what a directory contains already does
    /// not inherit the entry.
    ///
    /// The new DACL has neither SE_DACL_PROTECTED nor SE_DACL_AUTO_INHERITED, even if the old one
    /// had them: one that was protected from inheriting gets the inheritable entries of the
    /// directory above it when those are next set.
    /// \throws CertStoreUpdaterError_InvalidConfiguration, as `SecurityDescriptorDacl` and
    ///   `hasPermissions` do and with "Method" = "SetFileSecurity"
    static void addPermissions(boost::filesystem::path path, const AnyPackageSid& sid);

    /// `addPermissions` on a path and, if it is a directory or a link to one, on its entries and
    /// on theirs, links included; nothing deeper is changed. So what is in the directory that a
    /// link leads to is granted, but not, by the link, that directory itself. A directory is
    /// granted before its contents, and these in the order in which the system lists them. A
    /// failure ends the walk: what was granted stays granted.
    /// \throws CertStoreUpdaterError_InvalidConfiguration as `addPermissions` does
    /// \throws boost::filesystem::filesystem_error if the type of an entry cannot be told or a
    ///   directory cannot be listed
    static void addPermissionsRecursive(boost::filesystem::path path, const AnyPackageSid& sid);
};
