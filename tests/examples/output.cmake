# PROGRAM succeeds with the folder DATA as its argument and prints the content of the file EXPECTED.
execute_process(COMMAND "${PROGRAM}" "${DATA}" OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
file(READ "${EXPECTED}" expected)
if(NOT output STREQUAL expected)
  message(FATAL_ERROR "expected\n${expected}but it prints\n${output}")
endif()
