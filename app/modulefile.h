// The file of a PKCS#11 module, and whether it may be loaded.
#pragma once

#include "files.h"

#include <string>

namespace updater {

/// A module's file. While the object lives, nobody can change or replace it, so that what was
/// checked is what is loaded.
class ModuleFile {
public:
    enum class Signing { required, notRequired };

    /// \param name    a path, or a name without a folder, which is looked for beside this program
    ///                and in the system's folder only; ".dll" is added to what has no dot
    /// \param signing whether Windows must trust the signature in the file
    /// \throws Failure (module, signature)
    ModuleFile(const std::wstring& name, Signing signing);
    /// The full path.
    const std::wstring& path() const noexcept { return path_; }
    /// The full path in the active code page, as the library takes it.
    const std::string& pathForLibrary() const noexcept { return pathForLibrary_; }

private:
    std::wstring path_;
    std::string pathForLibrary_;
    Handle file_;
};

} // namespace updater
