// The fake token in the test's own process.
#pragma once

#include "faketoken.h"

#include <string>

namespace faketoken {

/// The folder of the test program, with a separator behind it; the fake modules lie there.
std::string programFolder();

/// The file name of a module, with the ending that modules have here: "faketoken.dll".
std::string fileNameOf(const std::string& module);

/// The path of a module that lies beside the test program: "faketoken", "nofunctionlist".
std::string modulePath(const std::string& module = "faketoken");

/// The folder of modules and libraries that must not be found: planted, beside the test program.
std::string plantedFolder();

/// Whether this process has loaded the file.
bool isLoaded(const std::string& path);

/// Loads the module, so that a test can script it before the code under test loads the same file,
/// and look at it afterwards. The code under test has its own reference to it.
class LoadedToken {
public:
    /// \throws std::runtime_error, here and below, if the file is not a fake token
    explicit LoadedToken(const std::string& path = modulePath());
    ~LoadedToken();
    LoadedToken(const LoadedToken&) = delete;
    LoadedToken& operator=(const LoadedToken&) = delete;

    Control* operator->() const { return control_; }
    Control& operator*() const { return *control_; }

    /// The module's functions, fetched for the test itself: the call is recorded.
    CK_FUNCTION_LIST& functions() const;

    /// Gives up this reference to the module; the control must not be used any more.
    /// \returns whether the module is still loaded, because others have not given up theirs
    bool release();

private:
    std::string path_;
    void* handle_;
    Control* control_;
};

} // namespace faketoken
