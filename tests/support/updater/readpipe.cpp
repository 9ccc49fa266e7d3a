// What another process writes, as it comes.
#include "readpipe.h"

#include "launch.h"

#include <array>
#include <chrono>

namespace testsupport {

namespace {

std::size_t count(const std::string& text, std::string_view part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size()))
        ++found;
    return found;
}

} // namespace

ReadPipe::ReadPipe() {
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    require(CreatePipe(&readEnd, &writeEnd, &inheritable, 0) != 0, "CreatePipe");
    readEnd_.reset(readEnd);
    writeEnd_.reset(writeEnd);
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
}

ReadPipe::~ReadPipe() {
    finish();
}

void ReadPipe::begin() {
    writeEnd_.reset();
    reader_ = std::thread([this] { read(); });
}

void ReadPipe::read() {
    std::array<char, 4096> chunk{};
    DWORD size = 0;
    // A write of nothing is read as nothing; only an error is the end.
    while (
        ReadFile(readEnd_.get(), chunk.data(), static_cast<DWORD>(chunk.size()), &size, nullptr)) {
        const std::lock_guard lock(mutex_);
        text_.append(chunk.data(), size);
        grown_.notify_all();
    }
    const std::lock_guard lock(mutex_);
    ended_ = true;
    grown_.notify_all();
}

std::string ReadPipe::text() const {
    const std::lock_guard lock(mutex_);
    return withoutCarriageReturns(text_);
}

bool ReadPipe::waitFor(std::string_view text, std::size_t times) {
    std::unique_lock lock(mutex_);
    const auto isThere = [&] { return count(withoutCarriageReturns(text_), text) >= times; };
    grown_.wait_for(lock, std::chrono::milliseconds(patience), [&] { return ended_ || isThere(); });
    return isThere();
}

void ReadPipe::finish() {
    if (reader_.joinable())
        reader_.join();
}

} // namespace testsupport
