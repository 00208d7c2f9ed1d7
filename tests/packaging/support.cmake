# Runs a command; the test fails if it fails.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# configure(source build [option...])
function(configure source build)
  run("${CMAKE_COMMAND}" -S "${source}" -B "${build}" -G "${GENERATOR}" "-DCMAKE_CXX_COMPILER=${CXX}" ${ARGN})
endfunction()

function(expect_equal expected actual what)
  if(NOT expected STREQUAL actual)
    message(FATAL_ERROR "${what}\n  expected: ${expected}\n  found:    ${actual}")
  endif()
endfunction()
