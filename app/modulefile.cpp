// The file of a PKCS#11 module, and whether it may be loaded.
#include "modulefile.h"

#include "failures.h"
#include "text.h"

#include "codeverifier.h"

#include <windows.h>

namespace updater {

namespace {

constexpr auto npos = std::wstring::npos;

/// Whether the last part of a path has a dot.
bool hasExtension(const std::wstring& path) {
    const std::size_t folder = path.find_last_of(L"\\/:");
    return path.find(L'.', folder == npos ? 0 : folder + 1) != npos;
}

/// A name without a dot gets what the loader would add silently, so that the file that it opens is
/// the one that was checked.
std::wstring withExtension(const std::wstring& name) {
    return hasExtension(name) ? name : name + L".dll";
}

std::wstring findByName(const std::wstring& name) {
    const std::wstring file = withExtension(name);
    for (const std::wstring& folder : {programFolder(), systemFolder()})
        if (!folder.empty() &&
            GetFileAttributesW((folder + file).c_str()) != INVALID_FILE_ATTRIBUTES)
            return folder + file;
    throw Failure(ExitCode::module,
                  L"the module \"" + name +
                      L"\" is neither beside this program nor in the system's folder; give its "
                      L"whole path");
}

/// The whole path takes away dots and blanks at the end, as Windows does, so it is looked at last.
std::wstring fullPathOf(const std::wstring& name) {
    const bool hasFolder = name.find_first_of(L"\\/:") != npos;
    return withExtension(fullPath(hasFolder ? name : findByName(name)));
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
                          L"\" has characters outside the system's code page; put the module into "
                          L"a folder whose path has none");
    return narrow;
}

std::wstring pathWithoutLinks(const std::wstring& path, HANDLE file) {
    std::wstring real = finalPath(file);
    if (real.empty())
        throw Failure(ExitCode::module,
                      L"where the module \"" + path + L"\" really lies cannot be told: " +
                          systemErrorText(GetLastError()) + L"; put it on another disk");
    // A link can lead to a name by which the loader would open another file: one with a dot or a
    // blank at its end, or without an extension.
    if (withExtension(fullPath(real)) != real)
        throw Failure(ExitCode::module, L"the module \"" + path + L"\" really is \"" + real +
                                            L"\", a name that means another file to Windows; "
                                            L"give it one that ends in .dll");
    return real;
}

/// \param path names the module in messages
void requireTrusted(const std::wstring& path, const std::wstring& realPath) {
    during({Activity::Kind::verifyModule, path}, [&] {
        buffer::Buffer<wchar_t> text(realPath.data(), realPath.size());
        pkcs11::certstoreupdater::CodeVerifier::verify(text);
    });
}

} // namespace

ModuleFile::ModuleFile(const std::wstring& name, Signing signing)
    : path_(fullPathOf(name)), file_(openAgainstChanges(path_)) {
    const std::wstring realPath = pathWithoutLinks(path_, file_.get());
    pathForLibrary_ = inActiveCodePage(realPath);
    if (signing == Signing::required)
        requireTrusted(path_, realPath);
}

} // namespace updater
