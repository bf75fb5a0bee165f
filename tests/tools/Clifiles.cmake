# Command-line calls that read and write files, checked on the files
# themselves: what must stay untouched, what must appear, byte for byte.
#   -DEXE=prog|arg      the program (with the emulator, if any), | separated
#   -DDRIVE=Z:          prefix that turns a path here into one the program sees
#   -DPLUGINS=dir       the test plug-ins;  -DSUFFIX=.so|.dll
#   -DDEMO=file.wav     a 16-bit stereo input (the demo's output)
#   -DSCRATCH=dir       a folder of this test's own (emptied first)
#   -DSCENARIO=name     which calls to make (see below)
string(REPLACE "|" ";" EXE "${EXE}")
file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}")
set(plugin "${PLUGINS}/qvtestvst2${SUFFIX}")

# run(RC REGEX [ENV knobs] ARGS...): one call; paths in ARGS are the program's.
function(run rc regex)
  cmake_parse_arguments(R "" "ENV" "" ${ARGN})
  set(env_args)
  if(R_ENV)
    set(env_args ${CMAKE_COMMAND} -E env "QVTEST_VST2_OPTIONS=${R_ENV}")
  endif()
  execute_process(COMMAND ${env_args} ${EXE} ${R_UNPARSED_ARGUMENTS}
                  RESULT_VARIABLE got OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("${R_UNPARSED_ARGUMENTS}\n  -> ${got}\n${out}${err}")
  if(NOT "${got}" STREQUAL "${rc}")
    message(FATAL_ERROR "exit status ${got}, expected ${rc}")
  endif()
  if(NOT "${out}${err}" MATCHES "${regex}")
    message(FATAL_ERROR "output does not match: ${regex}")
  endif()
endfunction()

function(expect_same a b)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files "${a}" "${b}" RESULT_VARIABLE differ)
  if(differ)
    message(FATAL_ERROR "${a} differs from ${b}")
  endif()
endfunction()

function(expect_no_leftovers)
  file(GLOB left "${SCRATCH}/.*")
  if(left)
    message(FATAL_ERROR "temporary files left behind: ${left}")
  endif()
endfunction()

set(in "${SCRATCH}/in.wav")
set(out "${SCRATCH}/out.wav")
file(COPY_FILE "${DEMO}" "${in}")

if(SCENARIO STREQUAL "never_destroys_an_input")
  # The input, the input through a link, the plug-in's own library.
  run(1 "is the input file" "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${in}" -q)
  expect_same("${in}" "${DEMO}")
  if(NOT DRIVE)
    file(CREATE_LINK "${in}" "${SCRATCH}/link.wav" SYMBOLIC)
    run(1 "is the input file" "${plugin}" -i "${in}" -o "${SCRATCH}/link.wav" -q)
    expect_same("${in}" "${DEMO}")
  endif()
  file(COPY_FILE "${plugin}" "${SCRATCH}/plug${SUFFIX}")
  run(1 "is the plug-in" "${DRIVE}${SCRATCH}/plug${SUFFIX}" -i "${DRIVE}${in}" -o "${DRIVE}${SCRATCH}/plug${SUFFIX}" -q)
  expect_same("${SCRATCH}/plug${SUFFIX}" "${plugin}")
  # A failed run leaves an existing output as it was, and nothing beside it.
  file(WRITE "${out}" "an earlier result")
  file(COPY_FILE "${out}" "${SCRATCH}/earlier")
  run(1 "program 9 out of range" "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" -P 9 -q)
  expect_same("${out}" "${SCRATCH}/earlier")
  expect_no_leftovers()
  # A successful one replaces it.
  run(0 "written" "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" -q)
  file(SIZE "${out}" size)
  file(SIZE "${in}" in_size)
  if(size LESS in_size)
    message(FATAL_ERROR "the output was not replaced (${size} bytes)")
  endif()
  expect_no_leftovers()
elseif(SCENARIO STREQUAL "isolate_survives_a_crashing_plugin")
  file(WRITE "${out}" "an earlier result")
  file(COPY_FILE "${out}" "${SCRATCH}/earlier")
  # A sanitizer build's child reports the fault itself and exits with a status of its own.
  run(1 "the plug-in .*qvtestvst2.* (crashed|ended its process).*was not written|runtime error|AddressSanitizer" ENV "CrashInProcess=1"
      "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" --isolate -q)
  expect_same("${out}" "${SCRATCH}/earlier")
  expect_no_leftovers()
  # Isolated and well-behaved, the result is the one made in process.
  run(0 "written" "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" --isolate -q -P 2)
  run(0 "written" "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${SCRATCH}/direct.wav" -q -P 2)
  expect_same("${out}" "${SCRATCH}/direct.wav")
elseif(SCENARIO STREQUAL "latency_and_tail")
  # The test plug-in at unity gain, delaying its output by 64 frames: with
  # the delay compensated and no tail, the output is the input again.
  run(0 "latency compensated: 64 frames.*processed 88320 frames" ENV "InitialDelay=64"
      "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" --tail 0 -q)
  expect_same("${out}" "${in}")
  run(0 "processed 88320 frames" ENV "InitialDelay=64"
      "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${SCRATCH}/late.wav" --tail 0 --no-latency-compensation -q)
  file(SIZE "${SCRATCH}/late.wav" late)
  file(SIZE "${in}" in_size)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files "${SCRATCH}/late.wav" "${in}" RESULT_VARIABLE differ)
  if(NOT late EQUAL in_size OR NOT differ)
    message(FATAL_ERROR "uncompensated output: ${late} bytes, differs: ${differ}")
  endif()
  # A tail of 0.01 s at 44100 Hz adds 441 stereo 16-bit frames; the plug-in's
  # own tail (441 samples) is the default.
  foreach(how "--tail;0.01" "-q")
    run(0 "and 441 frames of tail" ENV "TailSize=441"
        "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" ${how} -q)
    file(SIZE "${out}" size)
    math(EXPR want "${in_size} + 441 * 4")
    if(NOT size EQUAL want)
      message(FATAL_ERROR "output of ${size} bytes, expected ${want}")
    endif()
  endforeach()
elseif(SCENARIO STREQUAL "what_a_plugin_declares")
  run(1 "65537" ENV "NumOutputs=65537" "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" -q)
  run(1 "program 0 out of range \\(the plug-in has no programs \\(it reports -3\\)\\)" ENV "NumPrograms=-3"
      "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" -P 0 -q)
  # A plug-in that cannot bypass itself is bypassed by the host: the input
  # comes out unchanged, whatever the gain.
  run(0 "bypassed" ENV "CanDoBypass=-1,InitialDelay=64"
      "${DRIVE}${plugin}" -i "${DRIVE}${in}" -o "${DRIVE}${out}" --bypass -x 0=0.1 --tail 0 -q)
  expect_same("${out}" "${in}")
  expect_no_leftovers()
elseif(SCENARIO STREQUAL "unicode_paths")
  set(name "Übung été")
  file(COPY_FILE "${DEMO}" "${SCRATCH}/${name}.wav")
  file(MAKE_DIRECTORY "${SCRATCH}/${name}")
  run(0 "written" "${DRIVE}${plugin}" -i "${DRIVE}${SCRATCH}/${name}.wav" -o "${DRIVE}${SCRATCH}/${name}/résultat.wav" -q)
  if(NOT EXISTS "${SCRATCH}/${name}/résultat.wav")
    message(FATAL_ERROR "no output under the non-ASCII name")
  endif()
else()
  message(FATAL_ERROR "unknown scenario ${SCENARIO}")
endif()
