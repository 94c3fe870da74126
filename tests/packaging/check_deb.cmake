# Builds the Debian package with cpack, unpacks it into a scratch root with
# dpkg -x and runs the tools from there on the sample log they ship with.
file(REMOVE_RECURSE ${WORK_DIR})
set(root ${WORK_DIR}/root)

function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK_DIR}
    RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN} failed (${result}):\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

file(MAKE_DIRECTORY ${WORK_DIR})
run(${CPACK} -G DEB --config ${BUILD_DIR}/CPackConfig.cmake -B ${WORK_DIR}/package)
file(GLOB deb ${WORK_DIR}/package/*.deb)
list(LENGTH deb count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "expected one .deb in ${WORK_DIR}/package, found: ${deb}")
endif()
run(dpkg-deb --info ${deb})
message(STATUS "${out}")
run(dpkg-deb -x ${deb} ${root})

set(usr ${root}/usr)
foreach(file
    bin/vek-profile-viewer bin/vek-profile-log lib/libVekChrometraceProfilingReader.so
    include/VekChrometraceProfilingReader.h lib/cmake/VekProfile/VekProfileConfig.cmake
    share/man/man1/vek-profile-viewer.1.gz share/man/man1/vek-profile-log.1.gz
    share/bash-completion/completions/vek-profile-viewer
    share/bash-completion/completions/vek-profile-log
    share/doc/vek-profile/examples/linting_sample.log)
  if(NOT EXISTS ${usr}/${file})
    message(FATAL_ERROR "the package has no /usr/${file}")
  endif()
endforeach()

# The tools run from the scratch root, with the plug-in that came with them.
run(${usr}/bin/vek-profile-viewer --help)
if(NOT out MATCHES "^Usage: vek-profile-viewer")
  message(FATAL_ERROR "unexpected help:\n${out}")
endif()
set(sample ${usr}/share/doc/vek-profile/examples/linting_sample.log)
run(${usr}/bin/vek-profile-viewer ${sample} -o ${WORK_DIR}/sample.trace.json)
if(NOT out MATCHES "Execute Stats \\(Average\\)" OR NOT EXISTS ${WORK_DIR}/sample.trace.json)
  message(FATAL_ERROR "the packaged viewer did not report on the sample:\n${out}")
endif()
run(${usr}/bin/vek-profile-log check ${sample})
run(gzip -dc ${usr}/share/man/man1/vek-profile-viewer.1.gz)
if(NOT out MATCHES "\\.TH VEK-PROFILE-VIEWER \"1\"" OR NOT out MATCHES "salvage")
  message(FATAL_ERROR "the viewer's man page lacks its options:\n${out}")
endif()
