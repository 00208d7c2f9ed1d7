# Compiles each of HEADERS alone with OPTIONS, and requires that the first error is the text that tells what to do. A
# header that needs nothing of the kind may compile; the one that includes all others may not.

foreach(header IN LISTS HEADERS)
  execute_process(COMMAND "${CXX}" ${OPTIONS} -I "${SOURCE_DIR}" -Wfatal-errors -fsyntax-only -x c++ "${header}"
    RESULT_VARIABLE result ERROR_VARIABLE errors)
  string(REGEX MATCH "error: [^\n]*" first "${errors}")
  string(FIND "${first}" "${TEXT}" place)
  if(NOT result EQUAL 0 AND place EQUAL -1)
    message(SEND_ERROR "${header} with ${OPTIONS}: the first error is\n${errors}")
  elseif(result EQUAL 0 AND header MATCHES "/clss/clastool\\.h$")
    message(SEND_ERROR "${header} compiles with ${OPTIONS}")
  endif()
endforeach()
