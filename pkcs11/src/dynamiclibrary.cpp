// What loading a library has in common on all systems.
#include "dynamiclibrary.h"

#include "cktypes.h"
#include "pkcs11error.h"

namespace pkcs11 {

void throwModuleNotLoaded(const wchar_t* file, const std::string& path,
                          const buffer::Buffer<wchar_t>& reason, int line) {
    korv::GenericEvent cause("ModuleNotLoaded", file, line, 0);
    cause.setParam(L"MODULE", widened(path)).setParam(L"ERROR", reason);
    throw cryptokiError(file, ckr::generalError, cause, line);
}

} // namespace pkcs11
