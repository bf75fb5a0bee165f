# `quorvel mixer` over the system's winmm mixer (under Wine: "Out: default"
# and "In: default", each with a destination "Master Volume" that has a
# volume and a mute control): the list, and get and set on the destination's
# volume and mute, each value coming back and then restored.
#   -DEXE=prog            quorvel (with the emulator, if any), | separated
string(REPLACE "|" ";" EXE "${EXE}")
list(GET EXE 0 first)
set(one_line "^quorvel: [^\r\n]*\r?\n$")

# run(RC REGEX ARGS...): one call of quorvel. Under Wine a call that printed
# nothing did not get as far as the program: it is made once more.
function(run rc regex)
  foreach(attempt 1 2)
    execute_process(COMMAND ${EXE} ${ARGN} RESULT_VARIABLE got OUTPUT_VARIABLE out ERROR_VARIABLE err)
    string(REGEX REPLACE "wine-run: [^\n]*\n" "" err "${err}")
    if("${got}" STREQUAL "${rc}" OR NOT "${out}${err}" STREQUAL "" OR NOT first MATCHES "wine-run$")
      break()
    endif()
  endforeach()
  message("${ARGN}\n  -> ${got}\n${out}${err}")
  if(NOT "${got}" STREQUAL "${rc}")
    message(FATAL_ERROR "exit status ${got}, expected ${rc}")
  endif()
  if(NOT "${out}${err}" MATCHES "${regex}")
    message(FATAL_ERROR "output does not match: ${regex}")
  endif()
  set(last_output "${out}${err}" PARENT_SCOPE)
endfunction()

run(0 "device 0: Out: default .*destination: Master Volume .*device 1: In: default" mixer list)
set(listed "${last_output}")
# The destination's own volume and mute on the output device, by the names list gives.
foreach(kind Volume Mute)
  if(NOT listed MATCHES "(\\[[^\n]*\\] - \\[Master Volume\\] - \\[${kind} - [^\n]*\\])\r?\n +[a-z]+, ${kind}, ")
    message(FATAL_ERROR "list shows no destination ${kind} control")
  endif()
  set(${kind} "${CMAKE_MATCH_1}")
endforeach()
string(REGEX REPLACE "([][.*+?^$()|\\\\])" "\\\\\\1" volume_pattern "${Volume}")
run(0 "fader, Volume, 0\\.\\.65535, value [0-9]+" mixer list -d "Out: default")

# Volume: read, set to another value (set prints the value read back from
# the device), restored. Wine keeps a value for the process that set it only,
# so each call's own read-back is what is checked.
run(0 "^${volume_pattern} = ([0-9]+)\r?\n$" mixer get "${Volume}" -d "Out: default")
string(REGEX MATCH "= ([0-9]+)" _ "${last_output}")
set(old "${CMAKE_MATCH_1}")
if(old EQUAL 23456)
  set(new 12345)
else()
  set(new 23456)
endif()
run(0 "^${volume_pattern} = ${new}\r?\n$" mixer set "${Volume}" ${new} -d "Out: default")
run(0 "^${volume_pattern} = ${old}\r?\n$" mixer set "${Volume}" ${old} -d "Out: default")

# Mute: on or off, flipped and restored.
run(0 " = (on|off)\r?\n$" mixer get "${Mute}" -d "Out: default")
string(REGEX MATCH "= (on|off)" _ "${last_output}")
set(old_mute "${CMAKE_MATCH_1}")
if(old_mute STREQUAL "on")
  set(new_mute off)
else()
  set(new_mute on)
endif()
run(0 " = ${new_mute}\r?\n$" mixer set "${Mute}" ${new_mute} -d "Out: default")
run(0 " = ${old_mute}\r?\n$" mixer set "${Mute}" ${old_mute})

# Bad values and unknown names: one line and status 1; nothing changes.
run(1 "${one_line}" mixer set "${Volume}" 70000 -d "Out: default")
run(1 "expected an integer from 0 to 65535" mixer set "${Volume}" -1 -d "Out: default")
run(1 "expected on, off, 1 or 0" mixer set "${Mute}" maybe)
run(1 "no mixer device is called \"Nowhere\"" mixer get "${Volume}" -d Nowhere)
run(0 "^watching [1-9][0-9]* controls on 2 devices" mixer watch -s 0.2)
