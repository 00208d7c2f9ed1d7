# Compiles and runs a program with the flags that pkg-config gives for the installed library.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
file(GLOB_RECURSE pc "${PREFIX}/clastool.pc")
cmake_path(GET pc PARENT_PATH pc_dir)
cmake_path(GET pc_dir PARENT_PATH lib_dir)
execute_process(
  COMMAND "${CMAKE_COMMAND}" -E env "PKG_CONFIG_LIBDIR=${pc_dir}" "${PKG_CONFIG}" --cflags --libs clastool
  OUTPUT_VARIABLE flags
  OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ECHO STDOUT
  COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${flags}")
run("${CXX}" -std=c++17 "${SOURCE_DIR}/examples/hello.cpp" -o "${WORK_DIR}/hello" ${flags})
run("${CMAKE_COMMAND}" -E chdir "${WORK_DIR}"
  "${CMAKE_COMMAND}" -E env "LD_LIBRARY_PATH=${lib_dir}" "DYLD_LIBRARY_PATH=${lib_dir}" "${WORK_DIR}/hello")
