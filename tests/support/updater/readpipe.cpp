// What another process writes, as it comes.
#include "readpipe.h"

#include "childprocess.h"
#include "launch.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

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

class ReadPipe::Reading {
public:
    explicit Reading(Handle readEnd) : readEnd_(std::move(readEnd)) {}

    void readToEnd() {
        std::array<char, 4096> chunk{};
        DWORD size = 0;
        // A write of nothing is read as nothing; only an error is the end.
        while (ReadFile(readEnd_.get(), chunk.data(), static_cast<DWORD>(chunk.size()), &size,
                        nullptr)) {
            const std::lock_guard lock(mutex_);
            text_.append(chunk.data(), size);
            changed_.notify_all();
        }
        const std::lock_guard lock(mutex_);
        ended_ = true;
        changed_.notify_all();
    }

    std::string text() {
        const std::lock_guard lock(mutex_);
        return withoutCarriageReturns(text_);
    }

    bool waitFor(std::string_view text, std::size_t times) {
        std::unique_lock lock(mutex_);
        const auto isThere = [&] { return count(withoutCarriageReturns(text_), text) >= times; };
        changed_.wait_for(lock, limit, [&] { return ended_ || isThere(); });
        return isThere();
    }

    bool waitForEnd() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return ended_; });
    }

private:
    static constexpr std::chrono::milliseconds limit{patience};

    Handle readEnd_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
    bool ended_ = false;
};

ReadPipe::ReadPipe() {
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    require(CreatePipe(&readEnd, &writeEnd, &inheritable, 0) != 0, "CreatePipe");
    reading_ = std::make_shared<Reading>(Handle(readEnd));
    writeEnd_.reset(writeEnd);
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
}

ReadPipe::~ReadPipe() = default;

void ReadPipe::begin() {
    writeEnd_.reset();
    std::thread([reading = reading_] { reading->readToEnd(); }).detach();
}

std::string ReadPipe::text() const {
    return reading_->text();
}

bool ReadPipe::waitFor(std::string_view text, std::size_t times) {
    return reading_->waitFor(text, times);
}

bool ReadPipe::waitForEnd() {
    return reading_->waitForEnd();
}

} // namespace testsupport
