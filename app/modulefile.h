// The file of a PKCS#11 module, and whether it may be loaded.
#pragma once

#include "files.h"

#include <string>

namespace updater {

/// A module's file. While the object lives, nobody can change or replace it; the path that is
/// checked and loaded leads through no link that somebody could turn elsewhere in between. So what
/// was checked is what is loaded. The DLLs that the module loads itself are not checked.
class ModuleFile {
public:
    enum class Signing { required, notRequired };

    /// \param name    a path, or a name without a folder, which is looked for beside this program
    ///                and in the system's folder only; ".dll" is added to what has no dot
    /// \param signing whether Windows must trust the signature in the file
    /// \throws Failure (module, signature)
    ModuleFile(const std::wstring& name, Signing signing);
    /// The full path, as the user would write it.
    const std::wstring& path() const noexcept { return path_; }
    /// The path without links in the active code page, as the library takes it.
    const std::string& pathForLibrary() const noexcept { return pathForLibrary_; }

private:
    std::wstring path_;
    Handle file_;
    std::string pathForLibrary_;
};

} // namespace updater
