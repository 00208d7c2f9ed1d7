# Builds the consumer against the installed library with find_package() and runs its tests.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK_DIR}")
configure("${CMAKE_CURRENT_LIST_DIR}/consumer" "${WORK_DIR}"
  "-DCLASTOOL_PREFIX=${PREFIX}"
  "-DCLASTOOL_SHARED=${SHARED}"
  "-DHELLO_SOURCE=${SOURCE_DIR}/examples/hello.cpp"
  "-DGOLDEN_DIR=${SOURCE_DIR}/tests/golden")
run("${CMAKE_COMMAND}" --build "${WORK_DIR}")
run("${CMAKE_CTEST_COMMAND}" --test-dir "${WORK_DIR}" --output-on-failure --no-tests=error)
