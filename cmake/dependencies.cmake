# Other projects' libraries, as targets in the namespace deps::. The native build takes them from
# Debian, the cross build from build/deps/windows (see cmake/deps), and builds on Windows from vcpkg or
# MSYS2.

# An INTERFACE target for headers without a library.
function(add_header_dependency name header)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "PATH_SUFFIXES")
  find_path(${name}_INCLUDE_DIR "${header}" PATH_SUFFIXES ${arg_PATH_SUFFIXES} REQUIRED)
  add_library(deps_${name} INTERFACE)
  target_include_directories(deps_${name} SYSTEM INTERFACE "${${name}_INCLUDE_DIR}")
  add_library(deps::${name} ALIAS deps_${name})
endfunction()

add_header_dependency(pkcs11_header p11-kit/pkcs11.h PATH_SUFFIXES p11-kit-1)
add_header_dependency(cli11 CLI/CLI.hpp)
add_header_dependency(nlohmann_json nlohmann/json.hpp)

if(POLICY CMP0167)
  # CMake's own FindBoost, because the Windows build of Boost.Filesystem has no package file.
  cmake_policy(SET CMP0167 OLD)
endif()
set(Boost_USE_STATIC_LIBS ${WIN32})
# An older CMake does not know what a newer Filesystem depends on, and need not: only headers.
set(Boost_NO_WARN_NEW_VERSIONS ON)
find_package(Boost 1.74 REQUIRED COMPONENTS filesystem)
add_library(deps_boost_headers INTERFACE)
target_link_libraries(deps_boost_headers INTERFACE Boost::headers)
target_compile_definitions(deps_boost_headers INTERFACE BOOST_ALL_NO_LIB)
add_library(deps::boost_headers ALIAS deps_boost_headers)

add_library(deps_boost_filesystem INTERFACE)
target_link_libraries(deps_boost_filesystem INTERFACE deps_boost_headers Boost::filesystem)
if(WIN32)
  target_compile_definitions(deps_boost_filesystem INTERFACE
    BOOST_FILESYSTEM_STATIC_LINK BOOST_FILESYSTEM_NO_CXX20_ATOMIC_REF)
endif()
add_library(deps::boost_filesystem ALIAS deps_boost_filesystem)

if(BUILD_TESTING)
  add_header_dependency(valijson valijson/validator.hpp)
  # Otherwise it ends the program on an error.
  target_compile_definitions(deps_valijson INTERFACE VALIJSON_USE_EXCEPTIONS=1)

  set(googletest_sources /usr/src/googletest)
  if(EXISTS "${googletest_sources}/CMakeLists.txt")
    # Compiled with the flags of this build, so that sanitizers check all of a test program.
    set(INSTALL_GTEST OFF)
    add_subdirectory("${googletest_sources}" "${PROJECT_BINARY_DIR}/googletest"
      EXCLUDE_FROM_ALL SYSTEM)
    foreach(part gtest gmock gmock_main)
      target_compile_options(${part} PRIVATE ${CERTSTOREUPDATER_TEST_OPTIONS})
    endforeach()
  else()
    find_package(GTest REQUIRED CONFIG)
    foreach(part gtest gmock gmock_main)
      add_library(${part} ALIAS GTest::${part})
    endforeach()
  endif()
  add_library(deps_gtest INTERFACE)
  target_link_libraries(deps_gtest INTERFACE gmock gtest)
  add_library(deps::gtest ALIAS deps_gtest)
  add_library(deps_gtest_main INTERFACE)
  target_link_libraries(deps_gtest_main INTERFACE gmock_main deps_gtest)
  add_library(deps::gtest_main ALIAS deps_gtest_main)
endif()
