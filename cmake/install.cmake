# What is installed, and the packages that cpack makes of it: a zip and an installer. Everything is in
# one tree, so a program is built against the same folder that has the DLLs it needs.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(headers_folder "${CMAKE_INSTALL_INCLUDEDIR}/certstoreupdater")
set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/certstoreupdater")
set(licences_folder "${CMAKE_INSTALL_DATADIR}/licenses")

target_include_directories(certstoreupdater INTERFACE
  "$<INSTALL_INTERFACE:${headers_folder}>")
install(TARGETS certstoreupdater updater EXPORT certstoreupdater)

# The headers of the exported classes and those that they include. None of them needs a PKCS #11
# header.
install(DIRECTORY include/ util/include/ asn1/include/ DESTINATION "${headers_folder}")
install(FILES pkcs11/include/cklibrary.h pkcs11/include/pkcs11error.h
  DESTINATION "${headers_folder}")

# Fits callers who ask for this version or an older one of the same major version.
configure_package_config_file(cmake/certstoreupdaterConfig.cmake.in certstoreupdaterConfig.cmake
  INSTALL_DESTINATION "${package_folder}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(certstoreupdaterConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/certstoreupdaterConfig.cmake"
  "${PROJECT_BINARY_DIR}/certstoreupdaterConfigVersion.cmake"
  DESTINATION "${package_folder}")
install(EXPORT certstoreupdater
  FILE certstoreupdaterTargets.cmake NAMESPACE certstoreupdater:: DESTINATION "${package_folder}")

# The documents for users. They link to each other only.
install(FILES CHANGELOG.md LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES
  docs/certstoreupdate.md
  docs/certstoreupdate.schema.json
  docs/errors.md
  docs/installing.md
  docs/json.md
  docs/store-format.md
  DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs")
install(DIRECTORY docs/examples DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs"
  FILES_MATCHING PATTERN "*.cpp")

# install_licence(<what> <folder>...): installs a licence that one of the folders has.
function(install_licence what)
  find_file(LICENCE_OF_${what} copyright PATHS ${ARGN} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(LICENCE_OF_${what})
    install(FILES "${LICENCE_OF_${what}}" RENAME "${what}.txt" DESTINATION "${licences_folder}")
  else()
    message(WARNING "The licence of ${what} was not found: do not distribute what is installed.")
  endif()
endfunction()

# Boost's own licence is the same text.
install(FILES LICENSE RENAME certstoreupdater-and-boost.txt DESTINATION "${licences_folder}")
set(vcpkg_licences "${VCPKG_INSTALLED_DIR}/${VCPKG_TARGET_TRIPLET}/share")
install_licence(cli11 /usr/share/doc/libcli11-dev "${vcpkg_licences}/cli11")
install_licence(nlohmann-json /usr/share/doc/nlohmann-json3-dev "${vcpkg_licences}/nlohmann-json")
install_licence(p11-kit /usr/share/doc/libp11-kit-dev "${vcpkg_licences}/p11-kit")

if(MINGW)
  # The library, the program and whatever is built against them share one run-time library.
  get_filename_component(compiler_folder "${CMAKE_CXX_COMPILER}" DIRECTORY)
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${dll}"
      OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${file}")
      set(file "${compiler_folder}/${dll}")
    endif()
    # Stripped, because most of libstdc++ is symbols.
    set(stripped "${PROJECT_BINARY_DIR}/runtime/${dll}")
    file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/runtime")
    execute_process(COMMAND "${CMAKE_STRIP}" --preserve-dates -o "${stripped}" "${file}"
      COMMAND_ERROR_IS_FATAL ANY)
    install(PROGRAMS "${stripped}" DESTINATION "${CMAKE_INSTALL_BINDIR}")
  endforeach()
  install_licence(gcc-runtime /usr/share/doc/gcc-mingw-w64-x86-64-posix-runtime
    "${compiler_folder}/../share/licenses/gcc-libs")
  install_licence(mingw-w64 /usr/share/doc/mingw-w64-x86-64-dev
    "${compiler_folder}/../share/licenses/crt")
  find_file(GPL_TEXT GPL-3 PATHS /usr/share/common-licenses NO_DEFAULT_PATH
    NO_CMAKE_FIND_ROOT_PATH)
  if(GPL_TEXT)
    install(FILES "${GPL_TEXT}" RENAME gcc-runtime-gpl-3.txt DESTINATION "${licences_folder}")
  endif()
elseif(MSVC)
  include(InstallRequiredSystemLibraries)
endif()

set(CPACK_GENERATOR ZIP NSIS)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME "${PROJECT_NAME}")
set(CPACK_PACKAGE_VENDOR "${PROJECT_NAME}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_FILE_NAME "${PROJECT_NAME}-${PROJECT_VERSION}-windows-x86_64")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_PACKAGE_INSTALL_DIRECTORY "${PROJECT_NAME}")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_NSIS_PACKAGE_NAME "Certificate store updater")
set(CPACK_NSIS_DISPLAY_NAME "Certificate store updater ${PROJECT_VERSION}")
set(CPACK_NSIS_INSTALL_ROOT "$PROGRAMFILES64")
set(CPACK_NSIS_ENABLE_UNINSTALL_BEFORE_INSTALL ON)
# By default NSIS makes a 32-bit installer, whose registry entries 64-bit programs do not find.
set(CPACK_NSIS_DEFINES "Target amd64-unicode")
include(CPack)
