// Redirects a function that a loaded module imports or has a pointer to, for the length of a scope:
// to record its calls, to fail one of them, or to answer them.
#pragma once

#include "importslot.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace testsupport {

/// The names of hooked functions in the order of their calls, across all hooks that share it.
class CallLog {
public:
    void add(std::string_view function) { names_.emplace_back(function); }
    void clear() { names_.clear(); }
    const std::vector<std::string>& names() const noexcept { return names_; }

private:
    std::vector<std::string> names_;
};

template <class Function>
class ImportHook;

/// A hook on one imported function, whose signature is given as
/// `ImportHook<decltype(CertCloseStore)>`. Calls go on to where they went before, unless told
/// otherwise. Hooks on one function nest; destroy the last one first. One thread at a time.
///
/// An import table holds a plain address, which says nothing of a hook. So there is a fixed number
/// of functions (trampolines) for each signature, and each of them finds the hook that uses it in a
/// table.
template <class Result, class... Arguments>
class ImportHook<Result(Arguments...)> {
public:
    using Function = Result(Arguments...);
    using Call = std::tuple<Arguments...>;

    /// \param module a loaded module (an HMODULE)
    /// \param log if given, also gets an entry for every call; it must outlive the hook
    /// \throws std::invalid_argument if `module` does not import the function
    /// \throws std::logic_error if all functions of the signature are in use
    ImportHook(void* module, std::string_view dll, std::string_view function,
               CallLog* log = nullptr)
        : ImportHook(ImportSlot(module, dll, function), function, log) {}

    /// The same for what a slot has found.
    ImportHook(ImportSlot slot, std::string_view function, CallLog* log = nullptr)
        : name_(function), slot_(std::move(slot)),
          original_(reinterpret_cast<Function*>(slot_.target())), log_(log) {
        trampoline_ = takeTrampoline(this);
        slot_.redirect(reinterpret_cast<ImportSlot::Address>(trampolines[trampoline_]));
    }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;
    ~ImportHook() {
        slot_.redirect(reinterpret_cast<ImportSlot::Address>(original_));
        owners()[trampoline_] = nullptr;
    }

    /// Answers every call from now on by `replacement`, which may call `original()`.
    void replace(std::function<Function> replacement) { replacement_ = std::move(replacement); }

    /// Answers the n-th call (the first is 1, counted from the making of the hook or the last
    /// `reset`) by `result` without making it, after setting the thread's last error.
    void fail(std::size_t n, Result result, DWORD lastError) {
        onCall(n, [result, lastError](Arguments...) {
            SetLastError(lastError);
            return result;
        });
    }

    /// Answers the n-th call by `answer`, which may throw.
    void onCall(std::size_t n, std::function<Function> answer) {
        special_.emplace_back(n, std::move(answer));
    }

    /// Forgets all calls and all that was told.
    void reset() {
        calls_.clear();
        special_.clear();
        replacement_ = nullptr;
    }

    std::size_t count() const noexcept { return calls_.size(); }
    /// The arguments of all calls, in order. What pointers point at may be gone.
    const std::vector<Call>& calls() const noexcept { return calls_; }
    /// One argument of the n-th call; the first call is 1.
    template <std::size_t Index>
    const auto& argument(std::size_t n) const {
        return std::get<Index>(calls_.at(n - 1));
    }

    /// What the module called before.
    Result original(Arguments... arguments) const { return original_(arguments...); }

private:
    static constexpr std::size_t trampolineCount = 8;

    static std::array<ImportHook*, trampolineCount>& owners() {
        static std::array<ImportHook*, trampolineCount> hooks{};
        return hooks;
    }

    template <std::size_t Index>
    static Result trampoline(Arguments... arguments) {
        return owners()[Index]->call(arguments...);
    }

    template <std::size_t... Indexes>
    static constexpr std::array<Function*, trampolineCount>
    makeTrampolines(std::index_sequence<Indexes...>) {
        return {&ImportHook::template trampoline<Indexes>...};
    }
    static constexpr std::array<Function*, trampolineCount> trampolines =
        makeTrampolines(std::make_index_sequence<trampolineCount>());

    static std::size_t takeTrampoline(ImportHook* owner) {
        for (std::size_t i = 0; i != trampolineCount; ++i)
            if (!owners()[i]) {
                owners()[i] = owner;
                return i;
            }
        throw std::logic_error("too many hooks on functions of one signature");
    }

    Result call(Arguments... arguments) {
        if (recording_) // the module is the one that the hook itself is compiled into
            return original_(arguments...);
        record(arguments...);
        for (const auto& [n, answer] : special_)
            if (n == calls_.size())
                return answer(arguments...);
        return replacement_ ? replacement_(arguments...) : original_(arguments...);
    }

    void record(Arguments... arguments) {
        recording_ = true;
        calls_.emplace_back(arguments...);
        if (log_)
            log_->add(name_);
        recording_ = false;
    }

    std::string name_;
    ImportSlot slot_;
    Function* original_;
    CallLog* log_;
    std::size_t trampoline_ = 0;
    bool recording_ = false;
    std::vector<Call> calls_;
    std::vector<std::pair<std::size_t, std::function<Function>>> special_;
    std::function<Function> replacement_;
};

} // namespace testsupport
