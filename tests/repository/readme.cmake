# README.md shows examples/hello.cpp word for word, and below it what the program HELLO prints.
function(expect_block readme language content)
  string(FIND "${readme}" "\n```${language}\n${content}```\n" position)
  if(position EQUAL -1)
    message(FATAL_ERROR "README.md has no ${language} block with\n${content}")
  endif()
endfunction()

file(READ "${SOURCE_DIR}/README.md" readme)
file(READ "${SOURCE_DIR}/examples/hello.cpp" source)
execute_process(COMMAND "${HELLO}" OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
expect_block("${readme}" cpp "${source}")
expect_block("${readme}" text "${output}")
