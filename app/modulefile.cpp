// The file of a PKCS#11 module, and whether it may be loaded.
#include "modulefile.h"

#include "failures.h"
#include "text.h"

#include "codeverifier.h"

#include <windows.h>

namespace updater {

namespace {

constexpr auto npos = std::wstring::npos;

/// What the loader would do silently, so that the file that it opens is the one that was checked.
std::wstring withExtension(const std::wstring& name) {
    const std::size_t folder = name.find_last_of(L"\\/:");
    const std::size_t file = folder == npos ? 0 : folder + 1;
    return name.find(L'.', file) == npos ? name + L".dll" : name;
}

std::wstring fullPathOf(const std::wstring& name) {
    const std::wstring file = withExtension(name);
    if (file.find_first_of(L"\\/:") != npos)
        return fullPath(file);
    for (const std::wstring& folder : {programFolder(), systemFolder()})
        if (!folder.empty() &&
            GetFileAttributesW((folder + file).c_str()) != INVALID_FILE_ATTRIBUTES)
            return folder + file;
    throw Failure(ExitCode::module,
                  L"the module \"" + name +
                      L"\" is neither beside this program nor in the system's folder; give its "
                      L"whole path");
}

Handle openAgainstChanges(const std::wstring& path) {
    Handle file = openExisting(path, GENERIC_READ, FILE_SHARE_READ);
    if (!file)
        throw Failure(ExitCode::module, L"the module \"" + path + L"\" cannot be opened: " +
                                            systemErrorText(GetLastError()));
    return file;
}

/// Another file of a similar name must not be loaded instead, so there is no best fit.
std::string inActiveCodePage(const std::wstring& path) {
    std::string narrow = toActiveCodePage(path);
    if (fromActiveCodePage(narrow) != path)
        throw Failure(ExitCode::module,
                      L"the path of the module \"" + path +
                          L"\" has characters outside the system's code page; give it by its short "
                          L"name (dir /x) or put the module into another folder");
    return narrow;
}

void requireTrusted(const std::wstring& path) {
    during({Activity::Kind::verifyModule, path}, [&] {
        buffer::Buffer<wchar_t> text(path.data(), path.size());
        pkcs11::certstoreupdater::CodeVerifier::verify(text);
    });
}

} // namespace

ModuleFile::ModuleFile(const std::wstring& name, Signing signing)
    : path_(fullPathOf(name)), pathForLibrary_(inActiveCodePage(path_)),
      file_(openAgainstChanges(path_)) {
    if (signing == Signing::required)
        requireTrusted(path_);
}

} // namespace updater
