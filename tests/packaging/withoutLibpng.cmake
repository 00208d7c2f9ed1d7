# Only one example needs libpng: where it is missing, the others are configured, and it is said which one is left out.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(
  COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${WORK_DIR}" -G "${GENERATOR}" "-DCMAKE_CXX_COMPILER=${CXX}"
    -DCMAKE_DISABLE_FIND_PACKAGE_PNG=ON -DCLASTOOL_BUILD_TESTS=OFF
  ERROR_VARIABLE messages
  COMMAND_ECHO STDOUT
  COMMAND_ERROR_IS_FATAL ANY)
if(NOT messages MATCHES "The example surface_inspector is left out")
  message(FATAL_ERROR "the example that is left out is not named:\n${messages}")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${WORK_DIR}" --target help
  OUTPUT_VARIABLE targets COMMAND_ERROR_IS_FATAL ANY)
# Each stands at the beginning of a line, after "... " in what make says.
if(targets MATCHES "\n(\\.\\.\\. )?surface_inspector[:\n]" OR NOT targets MATCHES "\n(\\.\\.\\. )?hello[:\n]")
  message(FATAL_ERROR "expected all examples but surface_inspector:\n${targets}")
endif()
