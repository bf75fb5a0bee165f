# Runs one command-line call the way a user would and checks the exit status
# and the text it printed.
#   -DCMD=prog|arg|arg   the call, arguments separated by |
#   -DEXPECT_RC=N        the exit status it must end with
#   -DEXPECT_OUT=regex   what stdout and stderr together must match
string(REPLACE "|" ";" CMD "${CMD}")
macro(run_once)
  execute_process(COMMAND ${CMD} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  # The Wine wrapper announces a prefix it makes on the first run in a build
  # tree; that is not the program's output.
  string(REGEX REPLACE "wine-run: [^\n]*\n" "" err "${err}")
endmacro()
run_once()
# Every way the command-line host ends with an unexpected status prints why.
# A run under Wine that printed nothing at all did not get as far as the
# program (Wine's own start failing, with its messages switched off): that
# one run is made again, and the second run decides.
list(GET CMD 0 first)
if(NOT "${rc}" STREQUAL "${EXPECT_RC}" AND "${out}${err}" STREQUAL "" AND first MATCHES "wine-run$")
  message("first run ended with status ${rc} and printed nothing; running it again")
  run_once()
endif()
message("${out}${err}")
if(NOT "${rc}" STREQUAL "${EXPECT_RC}")
  message(FATAL_ERROR "exit status ${rc}, expected ${EXPECT_RC}")
endif()
if(DEFINED EXPECT_OUT AND NOT "${out}${err}" MATCHES "${EXPECT_OUT}")
  message(FATAL_ERROR "output does not match: ${EXPECT_OUT}")
endif()
