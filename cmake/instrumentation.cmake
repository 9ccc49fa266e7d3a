# Checks and counters that presets compile into everything, including the test framework.
if(MSVC)
  # The program has its manifest among its resources; the linker would add a second one.
  add_link_options(/MANIFEST:NO)
  return()
endif()

if(CERTSTOREUPDATER_SANITIZERS)
  add_compile_options(-fsanitize=${CERTSTOREUPDATER_SANITIZERS} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CERTSTOREUPDATER_SANITIZERS})
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()

if(CERTSTOREUPDATER_HARDENED_TESTS)
  # mingw-w64 has no run-time library for sanitizers, so undefined behaviour just ends the program.
  add_compile_options(-fsanitize=undefined -fsanitize-undefined-trap-on-error
    -fstack-protector-strong)
  add_link_options(-fstack-protector-strong)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()

if(CERTSTOREUPDATER_COVERAGE)
  # Without atomic updates, threads lose counts, and gcov derives negative ones.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

# Optimising the tests and GoogleTest would take more than half of the time of a build from nothing; what
# is tested keeps the flags of its preset. Benchmarks and fuzz targets share code with the tests, and need
# its speed.
if(NOT CERTSTOREUPDATER_FUZZERS)
  set(CERTSTOREUPDATER_TEST_OPTIONS $<$<NOT:$<CONFIG:Release>>:-O0> $<$<NOT:$<CONFIG:Release>>:-g1>)
endif()

if(MINGW)
  # Test programs with many templates have more sections than plain COFF allows.
  add_compile_options(-Wa,-mbig-obj)
  # The same sources give the same bytes in any folder and at any time. High-entropy addresses, dynamic
  # base and no-execute are this linker's defaults.
  add_link_options(-Wl,--no-insert-timestamp,--disable-auto-image-base)
  # Packages have no symbols.
  add_link_options($<$<CONFIG:Release>:-s>)
endif()
