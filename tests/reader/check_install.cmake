# Installs the project into a scratch prefix, builds the minimal host example
# against the installed package and runs it on the sample log.
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
foreach(step
    "${CMAKE_COMMAND};--install;${BUILD_DIR};--prefix;${prefix}"
    "${CMAKE_COMMAND};-S;${SOURCE_DIR}/examples/minimal_host;-B;${WORK_DIR}/host;-DCMAKE_PREFIX_PATH=${prefix}"
    "${CMAKE_COMMAND};--build;${WORK_DIR}/host")
  execute_process(COMMAND ${step} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${step} failed:\n${out}\n${err}")
  endif()
endforeach()
execute_process(
  COMMAND ${WORK_DIR}/host/minimal_host ${prefix}/lib/libVekChrometraceProfilingReader.so ${SAMPLE_LOG}
  RESULT_VARIABLE result OUTPUT_VARIABLE header)
if(NOT result EQUAL 0 OR NOT header MATCHES "^Input Log File Location: ")
  message(FATAL_ERROR "the installed plug-in did not load the sample: ${result}\n${header}")
endif()
