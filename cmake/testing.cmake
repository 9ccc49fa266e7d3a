# How tests are declared. Every test has these variables in its environment:
#   CSU_BUILD          the build folder; its bin/ has the programs and DLLs
#   CSU_WINE           the command that runs a Windows program (empty if none is needed)
#   CSU_SOFTHSM_DLL    SoftHSM as a Windows module
#   CSU_NATIVE_SOFTHSM SoftHSM as a module of this system
# A Windows test program gets Windows paths; all other tests get the host's.

set(CERTSTOREUPDATER_TEST_RESULTS "${PROJECT_BINARY_DIR}/test-results")
find_file(CERTSTOREUPDATER_NATIVE_SOFTHSM libsofthsm2.so
  PATHS /usr/lib/softhsm /usr/lib/x86_64-linux-gnu/softhsm
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)

# The test programs with tests that use several threads.
add_custom_target(threadtests)

# The host's path as Windows programs see it under Wine.
function(certstoreupdater_windows_path result path)
  if(WIN32 AND CMAKE_HOST_UNIX)
    set(path "Z:${path}")
  endif()
  set(${result} "${path}" PARENT_SCOPE)
endfunction()

# The folder of tests that the current one belongs to: the first below tests/.
function(certstoreupdater_test_folder result)
  file(RELATIVE_PATH folder "${PROJECT_SOURCE_DIR}/tests" "${CMAKE_CURRENT_SOURCE_DIR}")
  string(REGEX REPLACE "/.*" "" top "${folder}")
  set(${result} "${top}" PARENT_SCOPE)
endfunction()

# certstoreupdater_add_test(<name> SOURCES file... [LIBRARIES target...]
#                           [ENVIRONMENT key=value...] [DEPENDS target...] [SERIAL] [THREADS])
#
# A GoogleTest program, and one test of the same name that runs it in one process and leaves its
# results in test-results/<name>.json. SERIAL keeps other tests from running at the same time, for
# programs that change what all processes share, such as the registry. THREADS says that some of its
# tests use several threads; a build with the thread sanitizer has no other tests.
function(certstoreupdater_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "SERIAL;THREADS" "" "SOURCES;LIBRARIES;ENVIRONMENT;DEPENDS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "${name}: unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()

  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} deps::gtest_main project_warnings)
  target_precompile_headers(${name} REUSE_FROM testheaders)
  if(arg_DEPENDS)
    add_dependencies(${name} ${arg_DEPENDS})
  endif()
  if(arg_THREADS)
    add_dependencies(threadtests ${name})
  elseif(CERTSTOREUPDATER_SANITIZERS STREQUAL "thread")
    return()
  endif()

  certstoreupdater_windows_path(results "${CERTSTOREUPDATER_TEST_RESULTS}/${name}.json")
  certstoreupdater_windows_path(build "${PROJECT_BINARY_DIR}")
  certstoreupdater_windows_path(softhsm "${PROJECT_SOURCE_DIR}/build/deps/softhsm/softhsm2.dll")
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1 "--gtest_output=json:${results}")

  certstoreupdater_test_folder(top)
  set_tests_properties(${name} PROPERTIES
    LABELS "${top}"
    RUN_SERIAL "${arg_SERIAL}"
    TIMEOUT 1200
    ENVIRONMENT "LC_ALL=C.UTF-8;CSU_BUILD=${build};CSU_WINE=${CMAKE_CROSSCOMPILING_EMULATOR};\
CSU_SOFTHSM_DLL=${softhsm};CSU_NATIVE_SOFTHSM=${CERTSTOREUPDATER_NATIVE_SOFTHSM};${arg_ENVIRONMENT}")
endfunction()

# certstoreupdater_add_script_test(<name> COMMAND command... [ENVIRONMENT key=value...] [SERIAL])
#
# A command as one test, which passes if the command ends with 0.
function(certstoreupdater_add_script_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "SERIAL" "" "COMMAND;ENVIRONMENT")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "${name}: unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  if(CERTSTOREUPDATER_SANITIZERS STREQUAL "thread")
    return()
  endif()

  add_test(NAME ${name} COMMAND ${arg_COMMAND})
  certstoreupdater_test_folder(top)
  set_tests_properties(${name} PROPERTIES
    LABELS "${top};script"
    RUN_SERIAL "${arg_SERIAL}"
    TIMEOUT 1200
    ENVIRONMENT "LC_ALL=C.UTF-8;CSU_BUILD=${PROJECT_BINARY_DIR};CSU_WINE=${CMAKE_CROSSCOMPILING_EMULATOR};\
CSU_SOFTHSM_DLL=${PROJECT_SOURCE_DIR}/build/deps/softhsm/softhsm2.dll;\
CSU_NATIVE_SOFTHSM=${CERTSTOREUPDATER_NATIVE_SOFTHSM};${arg_ENVIRONMENT}")
endfunction()
