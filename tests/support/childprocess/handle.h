// The owner of a handle.
#pragma once

#include <windows.h>

#include <memory>
#include <type_traits>

namespace testsupport {

struct CloseAnyHandle {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseAnyHandle>;

} // namespace testsupport
