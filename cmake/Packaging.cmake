# The Debian package: after a build, `cpack -G DEB` in the build directory
# gives a .deb with the plug-in, its header and package config, both tools
# with their man pages and bash completion, and the sample log.

# Man pages written from each tool's --help at build time, so that they
# follow the options; docs/man/<tool>.h2m adds examples and cross references.
# Not in sanitizer builds, whose tools are not meant to be run at build time.
find_program(HELP2MAN_EXECUTABLE help2man)
find_program(GZIP_EXECUTABLE gzip)
if(HELP2MAN_EXECUTABLE AND GZIP_EXECUTABLE AND NOT VEK_SANITIZE AND NOT VEK_SANITIZE_THREAD
   AND NOT VEK_BUILD_FUZZERS)
  set(VEK_MAN_PAGES "")
  foreach(tool_and_name
      "vek-profile-viewer|turn a profile log into a trace and reports"
      "vek-profile-log|decode, encode, check and trim profile logs")
    string(REPLACE "|" ";" tool_and_name "${tool_and_name}")
    list(GET tool_and_name 0 tool)
    list(GET tool_and_name 1 name)
    set(include_file ${CMAKE_CURRENT_SOURCE_DIR}/docs/man/${tool}.h2m)
    set(page ${CMAKE_CURRENT_BINARY_DIR}/man/${tool}.1)
    add_custom_command(
      OUTPUT ${page}.gz
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/man
      COMMAND ${HELP2MAN_EXECUTABLE} --no-info --no-discard-stderr --section=1
              --name=${name} --include=${include_file} --output=${page} $<TARGET_FILE:${tool}>
      COMMAND ${GZIP_EXECUTABLE} -9nf ${page}
      DEPENDS ${tool} ${include_file}
      COMMENT "Writing the man page of ${tool}"
      VERBATIM)
    list(APPEND VEK_MAN_PAGES ${page}.gz)
  endforeach()
  add_custom_target(vek_man_pages ALL DEPENDS ${VEK_MAN_PAGES})
  install(FILES ${VEK_MAN_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
else()
  message(STATUS "No man pages (help2man not found, or a sanitizer build)")
endif()

install(FILES tools/completion/vek-profile-viewer tools/completion/vek-profile-log
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vek-profile)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "vek-profile maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Profile log reader plug-in with a trace, summary and CSV viewer and a log tool")
set(CPACK_PACKAGE_DESCRIPTION
    "Turns the binary profile log of the inference runtime into a Chrome trace, a text \
statistics summary and a CSV export. Holds the reader plug-in \
libVekChrometraceProfilingReader.so with its header and CMake package config, the host \
vek-profile-viewer and the log tool vek-profile-log.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
# The run-time dependencies (libc, libstdc++, zlib) are read from the binaries.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
