# Checks and counters compiled into everything, the test framework included, as the preset asks.
if(MSVC)
  # The program's manifest is among its resources; the linker would add a second one.
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
  # There is no sanitizer run-time for mingw-w64, so undefined behaviour ends the program at once.
  add_compile_options(-fsanitize=undefined -fsanitize-undefined-trap-on-error
    -fstack-protector-strong)
  add_link_options(-fstack-protector-strong)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()

if(CERTSTOREUPDATER_COVERAGE)
  # Tests with threads would lose counts, and gcov would conclude negative ones.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

if(MINGW)
  # Test programs full of templates outgrow the section count of plain COFF.
  add_compile_options(-Wa,-mbig-obj)
  # The same sources give the same bytes in whatever folder and at whatever time they are built;
  # high-entropy addresses, dynamic base and no-execute are this linker's defaults.
  add_link_options(-Wl,--no-insert-timestamp,--disable-auto-image-base)
  # What is packaged carries no symbols.
  add_link_options($<$<CONFIG:Release>:-s>)
endif()
