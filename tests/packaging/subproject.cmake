# Builds a project that has the library as a part. The project itself checks that the library changed none of its
# settings; here: it brings no tests, and installing the project installs nothing of the library.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK_DIR}")
configure("${CMAKE_CURRENT_LIST_DIR}/subproject" "${WORK_DIR}"
  "-DCLASTOOL_SOURCE_DIR=${SOURCE_DIR}"
  "-DHELLO_SOURCE=${SOURCE_DIR}/examples/hello.cpp")
run("${CMAKE_COMMAND}" --build "${WORK_DIR}")
execute_process(
  COMMAND "${CMAKE_CTEST_COMMAND}" --test-dir "${WORK_DIR}" --output-on-failure --no-tests=error
  OUTPUT_VARIABLE tests
  COMMAND_ECHO STDOUT
  COMMAND_ERROR_IS_FATAL ANY)
if(NOT tests MATCHES "0 tests failed out of 2\n")
  message(FATAL_ERROR "expected the project's two tests and no other:\n${tests}")
endif()
run("${CMAKE_COMMAND}" --install "${WORK_DIR}" --prefix "${WORK_DIR}/installed")
file(GLOB_RECURSE installed RELATIVE "${WORK_DIR}/installed" "${WORK_DIR}/installed/*")
expect_equal("bin/hello" "${installed}" "installed files")
