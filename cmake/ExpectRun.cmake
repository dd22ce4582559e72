# ctest -P script: runs one program and checks its exit code and output
# (standard output and error together).
#   -DCOMMAND=program|arg|...   '|' separates the words, so a cross lane's
#                               emulator prefix (a list) passes through
#   -DEXIT_CODE=N               the exit code expected
#   -DMATCH=regex               the output must match
#   [-DNO_MATCH=regex]          the output must not match
string(REPLACE "|" ";" command "${COMMAND}")
execute_process(COMMAND ${command} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
message("${out}")
if(NOT "${rc}" STREQUAL "${EXIT_CODE}")
  message(FATAL_ERROR "exit code ${rc}, expected ${EXIT_CODE}")
endif()
if(NOT out MATCHES "${MATCH}")
  message(FATAL_ERROR "the output does not match '${MATCH}'")
endif()
if(DEFINED NO_MATCH AND out MATCHES "${NO_MATCH}")
  message(FATAL_ERROR "the output matches '${NO_MATCH}'")
endif()
