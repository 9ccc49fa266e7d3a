// The token's PIN: where it comes from, and its short life in memory.
#include "pin.h"

#include "failures.h"
#include "files.h"
#include "secret.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace updater {

namespace {

// Tokens take PINs of up to 255 bytes. There is room for one byte more, and for a line end, so
// that what is too long is told from what fits.
constexpr std::size_t longestPin = 255;
constexpr std::size_t roomForPin = longestPin + 3;

using PinBytes = WipedArray<unsigned char, roomForPin>;
// No UTF-16 unit takes less than one byte of UTF-8.
using PinUnits = WipedArray<wchar_t, roomForPin>;

Handle openConsole(const wchar_t* name) {
    return openExisting(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
}

Failure unusable(const std::wstring& what) {
    return {ExitCode::usage, what + L"; the token was not asked"};
}

/// \param from names the source in messages, here and below
Failure tooLong(const std::wstring& from) {
    return unusable(L"what came from " + from + L" is too long to be a PIN");
}

bool beginsWith(const PinBytes& bytes, std::size_t size,
                std::initializer_list<unsigned char> mark) {
    return size >= mark.size() && std::equal(mark.begin(), mark.end(), bytes.data());
}

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

Pin pinOf(const PinBytes& bytes, std::size_t size, const std::wstring& from) {
    if (size == 0)
        throw unusable(L"the PIN from " + from + L" is empty");
    if (size > longestPin)
        throw tooLong(from);
    // A wrong PIN costs one of few tries, so what cannot be right is not tried.
    if (std::any_of(bytes.data(), bytes.data() + size, isControl))
        throw unusable(L"what came from " + from +
                       L" is no PIN, but has a control character or a second line end in it");
    return Pin(bytes.data(), size);
}

void refuseEncodingMarks(const PinBytes& bytes, std::size_t size, const std::wstring& from) {
    if (beginsWith(bytes, size, {0xFF, 0xFE}) || beginsWith(bytes, size, {0xFE, 0xFF}) ||
        beginsWith(bytes, size, {0xEF, 0xBB, 0xBF}))
        throw unusable(L"what came from " + from +
                       L" begins with a byte order mark; save the PIN without one");
}

std::size_t withoutLineEnd(const PinBytes& bytes, std::size_t size) {
    if (size == 0 || bytes[size - 1] != '\n')
        return size;
    --size;
    return size != 0 && bytes[size - 1] == '\r' ? size - 1 : size;
}

std::size_t readAll(HANDLE file, PinBytes& bytes, const std::wstring& from) {
    std::size_t size = 0;
    while (size != bytes.capacity()) {
        DWORD read = 0;
        if (!ReadFile(file, bytes.data() + size, static_cast<DWORD>(bytes.capacity() - size), &read,
                      nullptr)) {
            if (GetLastError() == ERROR_BROKEN_PIPE)
                break;
            throw unusable(L"the PIN cannot be read from " + from);
        }
        if (read == 0)
            break;
        size += read;
    }
    return size;
}

Pin pinFromStream(HANDLE stream, const std::wstring& from) {
    PinBytes bytes;
    const std::size_t size = readAll(stream, bytes, from);
    refuseEncodingMarks(bytes, size, from);
    return pinOf(bytes, withoutLineEnd(bytes, size), from);
}

Pin pinFromFile(const std::wstring& name) {
    const std::wstring from = L"the file \"" + name + L"\"";
    const Handle file = openExisting(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    if (!file)
        throw unusable(L"the PIN cannot be read from " + from +
                       L"; check that it exists and that you may read it");
    return pinFromStream(file.get(), from);
}

Pin pinFromStandardInput() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(input, &mode))
        throw unusable(L"standard input is the console, which would show the PIN; leave "
                       L"the option out to be asked for it");
    return pinFromStream(input, L"standard input");
}

Pin pinFromUnits(const PinUnits& units, std::size_t size, const std::wstring& from) {
    PinBytes bytes;
    const int converted =
        size == 0
            ? 0
            : WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, units.data(),
                                  static_cast<int>(size), reinterpret_cast<char*>(bytes.data()),
                                  static_cast<int>(bytes.capacity()), nullptr, nullptr);
    if (size != 0 && converted == 0)
        throw GetLastError() == ERROR_INSUFFICIENT_BUFFER
            ? tooLong(from)
            : unusable(L"what came from " + from + L" is no Unicode text");
    return pinOf(bytes, static_cast<std::size_t>(converted), from);
}

/// Takes a variable out of the environment of this process, which holds it twice: nothing that is
/// started later gets it, and no copy of its value stays.
void wipeVariable(const std::wstring& name, std::size_t size) {
    // As long as the old value, so that it is written over where it lies.
    SetEnvironmentVariableW(name.c_str(), std::wstring(size, L' ').c_str());
    SetEnvironmentVariableW(name.c_str(), nullptr);
    if (char* const copyOfRuntime = std::getenv(toActiveCodePage(name).c_str()))
        SecureZeroMemory(copyOfRuntime, std::strlen(copyOfRuntime));
}

Pin pinFromEnvironment(const std::wstring& name) {
    const std::wstring from = L"the environment variable \"" + name + L"\"";
    PinUnits units;
    SetLastError(ERROR_SUCCESS);
    const DWORD size =
        GetEnvironmentVariableW(name.c_str(), units.data(), static_cast<DWORD>(units.capacity()));
    if (size == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND)
        throw unusable(from + L" is not set");
    if (size >= units.capacity())
        throw tooLong(from);
    wipeVariable(name, size);
    return pinFromUnits(units, size, from);
}

HANDLE quietConsole = nullptr;
DWORD loudMode = 0;

BOOL WINAPI restoreEcho(DWORD) {
    SetConsoleMode(quietConsole, loudMode);
    return FALSE; // the next handler ends the program
}

/// A console that does not show what is typed, for as long as the object lives or until the
/// program is interrupted.
class WithoutEcho {
public:
    /// \throws Failure (usage) if the console cannot be silenced
    explicit WithoutEcho(HANDLE console) {
        quietConsole = console;
        const bool isKnown = GetConsoleMode(console, &loudMode) != FALSE;
        // First, so that no Ctrl-C leaves the console silent.
        if (isKnown)
            SetConsoleCtrlHandler(restoreEcho, TRUE);
        if (!isKnown || !SetConsoleMode(console, ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT)) {
            const DWORD error = GetLastError();
            SetConsoleCtrlHandler(restoreEcho, FALSE);
            throw unusable(L"the console would show the PIN: " + systemErrorText(error));
        }
    }
    WithoutEcho(const WithoutEcho&) = delete;
    WithoutEcho& operator=(const WithoutEcho&) = delete;
    ~WithoutEcho() {
        SetConsoleMode(quietConsole, loudMode);
        SetConsoleCtrlHandler(restoreEcho, FALSE);
    }
};

void show(HANDLE console, std::wstring_view text) {
    DWORD written = 0;
    WriteConsoleW(console, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

Pin pinFromPrompt() {
    const std::wstring from = L"the console";
    const Handle input = openConsole(L"CONIN$");
    const Handle output = openConsole(L"CONOUT$");
    DWORD mode = 0;
    if (!input || !output || !GetConsoleMode(input.get(), &mode))
        throw unusable(L"there is no console to ask for the PIN; give it by --pin-file, "
                       L"--pin-stdin or --pin-env");
    PinUnits units;
    DWORD size = 0;
    {
        const WithoutEcho quiet(input.get());
        show(output.get(), L"PIN: ");
        SetLastError(ERROR_SUCCESS);
        if (!ReadConsoleW(input.get(), units.data(), static_cast<DWORD>(units.capacity()), &size,
                          nullptr))
            throw unusable(L"the PIN cannot be read from " + from);
        // Ctrl-C reads as nothing at all, while the system makes ready to end the process.
        if (size == 0 && GetLastError() == ERROR_OPERATION_ABORTED)
            throw unusable(L"interrupted");
        show(output.get(), L"\r\n");
    }
    const wchar_t* const begin = units.data();
    const wchar_t* const end = begin + size;
    const wchar_t* const lineEnd =
        std::find_if(begin, end, [](wchar_t unit) { return unit == L'\r' || unit == L'\n'; });
    if (lineEnd == end && size == units.capacity()) {
        // What was not read would go to, and be shown by, whoever reads the console next.
        FlushConsoleInputBuffer(input.get());
        throw tooLong(from);
    }
    return pinFromUnits(units, static_cast<std::size_t>(lineEnd - begin), from);
}

} // namespace

void Pin::wipe() noexcept {
    SecureZeroMemory(bytes_.data(), bytes_.size());
    bytes_ = {};
}

Pin readPin(const PinSource& source) {
    switch (source.kind) {
    case PinSource::Kind::file:
        return pinFromFile(source.name);
    case PinSource::Kind::standardInput:
        return pinFromStandardInput();
    case PinSource::Kind::environment:
        return pinFromEnvironment(source.name);
    case PinSource::Kind::prompt:
        break;
    }
    return pinFromPrompt();
}

} // namespace updater
