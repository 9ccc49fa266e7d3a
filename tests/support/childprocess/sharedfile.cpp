// A file that a test shares with a program that it runs.
#include "sharedfile.h"

#include "childprocess.h"

#include <array>

namespace testsupport {

namespace {

std::wstring newTemporaryFile() {
    std::array<wchar_t, MAX_PATH + 1> folder{};
    std::array<wchar_t, MAX_PATH> name{};
    require(GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()) != 0, "GetTempPath");
    require(GetTempFileNameW(folder.data(), L"csu", 0, name.data()) != 0, "GetTempFileName");
    return name.data();
}

} // namespace

SharedFile::SharedFile() {
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    const HANDLE file =
        CreateFileW(newTemporaryFile().c_str(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inheritable,
                    CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    require(file != INVALID_HANDLE_VALUE, "CreateFile");
    file_.reset(file);
}

void SharedFile::write(std::string_view text) const {
    DWORD written = 0;
    require(WriteFile(handle(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) !=
                0,
            "WriteFile");
    rewind();
}

std::string SharedFile::read() const {
    rewind();
    std::string text;
    std::array<char, 4096> chunk{};
    DWORD count = 0;
    while (ReadFile(handle(), chunk.data(), static_cast<DWORD>(chunk.size()), &count, nullptr) &&
           count != 0)
        text.append(chunk.data(), count);
    return text;
}

void SharedFile::rewind() const {
    SetFilePointer(handle(), 0, nullptr, FILE_BEGIN);
}

} // namespace testsupport
