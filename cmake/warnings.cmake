# The warnings for our own code: link to project_warnings to get them.
add_library(project_warnings INTERFACE)

if(MSVC)
  # Not errors, because nobody has compiled with them yet. 4251 and 4275 are about members and bases
  # from the standard library in exported classes; the DLL and its callers share that library.
  target_compile_options(project_warnings INTERFACE
    /W4 /wd4251 /wd4275 /permissive- /utf-8 /Zc:__cplusplus)
  return()
endif()

target_compile_options(project_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wcast-align -Wcast-qual -Wconversion -Wsign-conversion -Wdouble-promotion
  -Wextra-semi -Wformat=2 -Wimplicit-fallthrough -Wnon-virtual-dtor -Wold-style-cast
  -Woverloaded-virtual -Wshadow -Wundef -Wunused -Wvla)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(project_warnings INTERFACE
    -Wduplicated-branches -Wduplicated-cond -Wlogical-op)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # At -O3 GCC 12 reports overlaps in std::string's own code that do not exist (GCC bug 105651).
  target_compile_options(project_warnings INTERFACE $<$<CONFIG:Release>:-Wno-restrict>)
endif()
