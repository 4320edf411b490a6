# Compiles SOURCE with COMPILER and compares the outcome: it must compile when EXPECTED is empty, and must be refused
# with an error that matches EXPECTED when it is not.
execute_process(
  COMMAND ${COMPILER} -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror=format -I${INCLUDE_DIRECTORY} ${SOURCE}
  RESULT_VARIABLE iResult
  ERROR_VARIABLE strErrors)
if(EXPECTED STREQUAL "")
  if(NOT iResult STREQUAL "0" OR NOT strErrors STREQUAL "")
    message(FATAL_ERROR "does not compile cleanly:\n${strErrors}")
  endif()
elseif(iResult STREQUAL "0")
  message(FATAL_ERROR "compiles, and must not")
elseif(NOT strErrors MATCHES "error: [^\n]*(${EXPECTED})")
  message(FATAL_ERROR "is refused for another reason than ${EXPECTED}:\n${strErrors}")
endif()
