# Runs one command-line call the way a user would and checks the exit status
# and the text it printed.
#   -DCMD=prog|arg|arg   the call, arguments separated by |
#   -DEXPECT_RC=N        the exit status it must end with
#   -DEXPECT_OUT=regex   what stdout and stderr together must match
string(REPLACE "|" ";" CMD "${CMD}")
execute_process(COMMAND ${CMD} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
# The Wine wrapper announces a prefix it makes on the first run in a build
# tree; that is not the program's output.
string(REGEX REPLACE "wine-run: [^\n]*\n" "" err "${err}")
message("${out}${err}")
if(NOT "${rc}" STREQUAL "${EXPECT_RC}")
  message(FATAL_ERROR "exit status ${rc}, expected ${EXPECT_RC}")
endif()
if(DEFINED EXPECT_OUT AND NOT "${out}${err}" MATCHES "${EXPECT_OUT}")
  message(FATAL_ERROR "output does not match: ${EXPECT_OUT}")
endif()
