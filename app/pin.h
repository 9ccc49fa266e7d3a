// The token's PIN: where it comes from, and its short life in memory.
#pragma once

#include "buffer.h"

#include <string>

namespace updater {

/// Where the PIN comes from. Never from the command line, which other processes can read.
struct PinSource {
    enum class Kind { prompt, file, standardInput, environment };
    Kind kind = Kind::prompt;
    std::wstring name{}; ///< of the file or of the environment variable
};

/// A PIN, wiped from memory when it is done with.
class Pin {
public:
    Pin(const unsigned char* bytes, std::size_t size) : bytes_(bytes, size) {}
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;
    ~Pin() { wipe(); }

    /// Forgets the PIN.
    void wipe() noexcept;

    /// As the token takes them: UTF-8 where the PIN was typed or came as an environment variable,
    /// else as they were read.
    const buffer::Buffer<unsigned char>& bytes() const noexcept { return bytes_; }

private:
    buffer::Buffer<unsigned char> bytes_;
};

/// Reads the PIN, once. From a file or standard input all is read; one line end behind the PIN is
/// dropped. The prompt goes to the console, whatever the standard streams are, and shows nothing
/// of what is typed.
/// \throws Failure (usage) if it cannot be read, is empty, is longer than any PIN is, or looks
///   like text in an encoding that the token would not understand
Pin readPin(const PinSource& source);

} // namespace updater
