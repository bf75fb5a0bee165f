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

# cut(FILE FROM COUNT OUT): COUNT bytes of FILE from byte FROM (0-based) into OUT.
function(cut file from count out)
  math(EXPR first "${from} + 1")
  execute_process(COMMAND tail -c +${first} "${file}" COMMAND head -c ${count} OUTPUT_FILE "${out}" RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "cannot cut ${file}")
  endif()
endfunction()

# join(OUT PIECES...): the pieces one after another.
function(join out)
  execute_process(COMMAND ${CMAKE_COMMAND} -E cat ${ARGN} OUTPUT_FILE "${out}")
endfunction()

# bytes(OUT TEXT): printf's rendering of TEXT (octal escapes such as \\377) into OUT.
function(bytes out text)
  execute_process(COMMAND printf "${text}" OUTPUT_FILE "${out}")
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
elseif(SCENARIO STREQUAL "plugin_files")
  # Commands of every kind: the program without the "process" the others run.
  list(POP_BACK EXE)
  set(chunks "${PLUGINS}/qvtestvst2_chunks${SUFFIX}")
  set(P "${DRIVE}${plugin}")
  set(C "${DRIVE}${chunks}")
  set(S "${DRIVE}${SCRATCH}")
  # Chunk form: a program saved after settings loads into a fresh plug-in,
  # and saving what was loaded gives the same file, byte for byte.
  run(0 "saved program 1 \"Half\" of Quorvel Test Plug-in as a preset \\(chunk form, [0-9]+ bytes\\).*written"
      preset save "${C}" "${S}/chunk.fxp" -P 1 -x Gain=0.125 -x "channel map=1")
  run(0 "program 0 \"Half\" \\(was 0 \"Unity\"\\).*parameters changed: 2 of 3.*Gain +0.5000 -> 0.1250.*Channel Map +0.0000 -> 1.0000"
      preset load "${C}" "${S}/chunk.fxp")
  run(0 "written" preset save "${C}" "${S}/chunk-again.fxp" --preset "${S}/chunk.fxp")
  expect_same("${SCRATCH}/chunk.fxp" "${SCRATCH}/chunk-again.fxp")
  run(0 "saved 4 programs .* as a bank \\(chunk form" bank save "${C}" "${S}/chunk.fxb" -P 2 -x 0=0.3)
  run(0 "program 2 \"Swapped\" \\(was 0 \"Unity\"\\).*Gain +0.5000 -> 0.3000" bank load "${C}" "${S}/chunk.fxb")
  run(0 "written" bank save "${C}" "${S}/chunk-again.fxb" --bank "${S}/chunk.fxb")
  expect_same("${SCRATCH}/chunk.fxb" "${SCRATCH}/chunk-again.fxb")

  # Parameter form: the host writes 4 filler bytes after each header and
  # reads without them, so its own preset loads one parameter later (and
  # says so); the same file without the filler loads as saved.
  run(0 "parameter form, 72 bytes.*written.*each value lands one parameter later" preset save "${P}" "${S}/own.fxp" -x Gain=0.375 -x 1=1)
  run(0 "Gain +0.5000 -> 0.0000.*Channel Map +0.0000 -> 0.3750.*values at byte 60.*lands one parameter later"
      preset load "${P}" "${S}/own.fxp")
  cut("${SCRATCH}/own.fxp" 0 56 "${SCRATCH}/head")
  cut("${SCRATCH}/own.fxp" 60 12 "${SCRATCH}/values")
  join("${SCRATCH}/standard.fxp" "${SCRATCH}/head" "${SCRATCH}/values")
  run(0 "parameters changed: 2 of 3.*Gain +0.5000 -> 0.3750  \\(1.000 -> 0.750\\).*Channel Map +0.0000 -> 1.0000"
      preset load "${P}" "${S}/standard.fxp")
  run(0 "written" preset save "${P}" "${S}/own-again.fxp" --preset "${S}/standard.fxp")
  expect_same("${SCRATCH}/own.fxp" "${SCRATCH}/own-again.fxp")
  # A bank likewise: 156 bytes of header, then 56 of each program's and its values.
  run(0 "saved 4 programs .*parameter form, 448 bytes" bank save "${P}" "${S}/own.fxb" -x Gain=0.375 -x 1=1)
  run(0 "laid out as this host writes banks" bank load "${P}" "${S}/own.fxb")
  cut("${SCRATCH}/own.fxb" 0 156 "${SCRATCH}/bank-head")
  set(pieces "${SCRATCH}/bank-head")
  foreach(program 0 1 2 3)
    math(EXPR at "160 + ${program} * 72")
    math(EXPR values_at "${at} + 60")
    cut("${SCRATCH}/own.fxb" ${at} 56 "${SCRATCH}/head${program}")
    cut("${SCRATCH}/own.fxb" ${values_at} 12 "${SCRATCH}/values${program}")
    list(APPEND pieces "${SCRATCH}/head${program}" "${SCRATCH}/values${program}")
  endforeach()
  join("${SCRATCH}/standard.fxb" ${pieces})
  run(0 "program 3 \"Silent\" \\(was 0 \"Unity\"\\).*program names changed: 0 of 4" bank load "${P}" "${S}/standard.fxb")
  run(0 "written" bank save "${P}" "${S}/own-again.fxb" --bank "${S}/standard.fxb")
  expect_same("${SCRATCH}/own.fxb" "${SCRATCH}/own-again.fxb")

  # Files and settings in process: a preset, a bank's program, and -x by
  # name or by index all give the same sound.
  run(0 "written" process "${P}" -i "${DRIVE}${in}" -o "${S}/by-name.wav" -x Gain=0.375 -x "Channel Map=1" -q)
  run(0 "written" process "${P}" -i "${DRIVE}${in}" -o "${S}/by-index.wav" -x 1=1 -x 0=0.375 -q)
  run(0 "written" process "${P}" -i "${DRIVE}${in}" -o "${S}/by-preset.wav" --preset "${S}/standard.fxp" -q)
  run(0 "written" process "${P}" -i "${DRIVE}${in}" -o "${S}/by-bank.wav" --bank "${S}/standard.fxb" -P 0 -q)
  foreach(other by-index by-preset by-bank)
    expect_same("${SCRATCH}/by-name.wav" "${SCRATCH}/${other}.wav")
  endforeach()
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files "${SCRATCH}/by-name.wav" "${in}" RESULT_VARIABLE differ)
  if(NOT differ)
    message(FATAL_ERROR "the settings changed nothing")
  endif()
  run(1 "no parameter named \"Loudness\"" process "${P}" -i "${DRIVE}${in}" -o "${S}/x.wav" -x Loudness=1 -q)
  run(1 "parameter 3 out of range \\(the plug-in has 3\\)" process "${P}" -i "${DRIVE}${in}" -o "${S}/x.wav" -x 3=1 -q)
  run(1 "-x Gain=loud: the value of parameter 0 \\(Gain\\) must be a number from 0 to 1"
      process "${P}" -i "${DRIVE}${in}" -o "${S}/x.wav" -x Gain=loud -q)
  run(1 "-x 1=2: the value of parameter 1 \\(Channel Map\\) must be a number" params "${P}" -x 1=2)

  # Wrong files: one line naming the problem, nothing applied, status 1.
  run(1 "^quorvel: Preset file not for this plugin!\r?\n$" preset load "${P}" "${S}/chunk.fxp")
  run(1 "^quorvel: Bank file not for this plugin!\r?\n$" bank load "${P}" "${S}/chunk.fxb")
  run(1 "Preset file not for this plugin!" process "${P}" -i "${DRIVE}${in}" -o "${S}/x.wav" --preset "${S}/chunk.fxp" -q)
  run(1 "^quorvel: Preset file .*missing.fxp does not exist\\.\r?\n$" preset load "${P}" "${S}/missing.fxp")
  run(1 "^quorvel: Bank file .*missing.fxb does not exist\r?\n$" bank load "${P}" "${S}/missing.fxb")
  cut("${SCRATCH}/standard.fxp" 0 40 "${SCRATCH}/short-header.fxp")
  run(1 "short-header.fxp is cut short: 40 bytes, fewer than the 56 bytes of a preset header"
      preset load "${P}" "${S}/short-header.fxp")
  cut("${SCRATCH}/standard.fxp" 0 60 "${SCRATCH}/short-values.fxp")
  run(1 "short-values.fxp is cut short: it announces 3 parameter values and holds 1"
      preset load "${P}" "${S}/short-values.fxp")
  cut("${SCRATCH}/standard.fxb" 0 300 "${SCRATCH}/short.fxb")
  run(1 "short.fxb is cut short: it announces 4 programs and holds 2" bank load "${P}" "${S}/short.fxb")
  cut("${SCRATCH}/chunk.fxp" 0 80 "${SCRATCH}/short-chunk.fxp")
  run(1 "short-chunk.fxp is cut short: it announces a chunk of [0-9]+ bytes and holds 20"
      preset load "${C}" "${S}/short-chunk.fxp")
  # A header announcing 0x41414141 values over four bytes.
  file(WRITE "${SCRATCH}/hostile.fxp" "CcnKAAAAFxCkAAAAQvT2AAAAAAAAHostile-program-name-28-byteAAAA")
  run(1 "hostile.fxp is cut short: it announces 1094795585 parameter values and holds 1"
      preset load "${P}" "${S}/hostile.fxp")

  # Counts of -1 (and chunk sizes of -1) are damage, not a large number.
  bytes("${SCRATCH}/minus-one" "\\377\\377\\377\\377")
  cut("${SCRATCH}/standard.fxp" 0 24 "${SCRATCH}/before-count")
  cut("${SCRATCH}/standard.fxp" 28 40 "${SCRATCH}/after-count")
  join("${SCRATCH}/minus.fxp" "${SCRATCH}/before-count" "${SCRATCH}/minus-one" "${SCRATCH}/after-count")
  run(1 "minus.fxp is damaged: it announces -1 parameter values" preset load "${P}" "${S}/minus.fxp")
  cut("${SCRATCH}/standard.fxb" 0 24 "${SCRATCH}/bank-before-count")
  cut("${SCRATCH}/standard.fxb" 28 1000 "${SCRATCH}/bank-after-count")
  join("${SCRATCH}/minus.fxb" "${SCRATCH}/bank-before-count" "${SCRATCH}/minus-one" "${SCRATCH}/bank-after-count")
  run(1 "minus.fxb is damaged: it announces -1 programs" bank load "${P}" "${S}/minus.fxb")
  cut("${SCRATCH}/chunk.fxp" 0 56 "${SCRATCH}/chunk-head")
  cut("${SCRATCH}/chunk.fxp" 60 1000 "${SCRATCH}/chunk-body")
  join("${SCRATCH}/minus-chunk.fxp" "${SCRATCH}/chunk-head" "${SCRATCH}/minus-one" "${SCRATCH}/chunk-body")
  run(1 "minus-chunk.fxp is damaged: it gives its chunk a size of -1 bytes" preset load "${C}" "${S}/minus-chunk.fxp")
  # A bank of six programs for a plug-in of four: the first four load, with a warning.
  bytes("${SCRATCH}/six" "\\000\\000\\000\\006")
  join("${SCRATCH}/six.fxb" "${SCRATCH}/bank-before-count" "${SCRATCH}/six" "${SCRATCH}/bank-after-count"
       "${SCRATCH}/head3" "${SCRATCH}/values3" "${SCRATCH}/head3" "${SCRATCH}/values3")
  run(0 "program names changed: 0 of 4.*six.fxb holds 6 programs and the plug-in has 4: only the first 4 are loaded"
      bank load "${P}" "${S}/six.fxb")

  # Saving: never onto the plug-in, and a failed save leaves the file as it was.
  file(COPY_FILE "${plugin}" "${SCRATCH}/plug${SUFFIX}")
  run(1 "is the plug-in" preset save "${S}/plug${SUFFIX}" "${S}/plug${SUFFIX}")
  run(1 "is the plug-in" bank save "${S}/plug${SUFFIX}" "${S}/plug${SUFFIX}")
  expect_same("${SCRATCH}/plug${SUFFIX}" "${plugin}")
  file(COPY_FILE "${SCRATCH}/own.fxp" "${SCRATCH}/kept.fxp")
  run(1 "no parameter named \"Nope\"" preset save "${P}" "${S}/own.fxp" -x Nope=1)
  expect_same("${SCRATCH}/own.fxp" "${SCRATCH}/kept.fxp")
  expect_no_leftovers()
else()
  message(FATAL_ERROR "unknown scenario ${SCENARIO}")
endif()
