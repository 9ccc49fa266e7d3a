// certstoreupdate verify: Authenticode signatures.
#include "commands.h"

#include "files.h"
#include "text.h"

#include "codeverifier.h"

namespace updater {

namespace {

void verify(const std::wstring& path) {
    const std::wstring whole = fullPath(path);
    if (GetFileAttributesW(whole.c_str()) == INVALID_FILE_ATTRIBUTES)
        throw Failure(ExitCode::signature, L"the signature of \"" + path +
                                               L"\" cannot be checked: " +
                                               systemErrorText(GetLastError()));
    during({Activity::Kind::verify, path}, [&] {
        buffer::Buffer<wchar_t> text(whole.data(), whole.size());
        pkcs11::certstoreupdater::CodeVerifier::verify(text);
    });
}

} // namespace

void verifyFiles(const Options& options, Output& output) {
    Json& files = output.member("files") = Json::array();
    Table table;
    for (const std::wstring& path : options.paths) {
        bool trusted = true;
        try {
            verify(path);
        } catch (const Failure& failure) {
            output.fail(failure);
            trusted = false;
        }
        files.push_back({{"file", toUtf8(path)}, {"trusted", trusted}});
        table.add(
            {trusted ? Span{L"trusted", Colour::good} : Span{L"not trusted", Colour::bad}, {path}});
    }
    output.show(table);
}

} // namespace updater
