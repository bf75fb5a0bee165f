# The media commands (dmo, encode, decode, log) called as a user calls them,
# checked on the files they write.
#   -DEXE=prog            quorvel (with the emulator, if any), | separated
#   -DWAVTOOL=prog        the tests' qvwavtool, | separated
#   -DDRIVE=Z:            prefix that turns a path here into one the programs see
#   -DDEMO=file.wav       a 16-bit stereo 44100 Hz input at -8 dBFS (the demo's output)
#   -DSCRATCH=dir         a folder of this test's own (emptied first)
#   -DSCENARIO=name       which calls to make (see below)
string(REPLACE "|" ";" EXE "${EXE}")
string(REPLACE "|" ";" WAVTOOL "${WAVTOOL}")
file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}")
set(S "${DRIVE}${SCRATCH}")
set(in "${SCRATCH}/in.wav")
file(COPY_FILE "${DEMO}" "${in}")
# A failure is one line on stderr and nothing on stdout.
set(one_line "^quorvel: [^\r\n]*\r?\n$")

# run(RC REGEX ARGS...): one call of quorvel; paths in ARGS are the program's.
function(run rc regex)
  execute_process(COMMAND ${EXE} ${ARGN} RESULT_VARIABLE got OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("${ARGN}\n  -> ${got}\n${out}${err}")
  if(NOT "${got}" STREQUAL "${rc}")
    message(FATAL_ERROR "exit status ${got}, expected ${rc}")
  endif()
  if(NOT "${out}${err}" MATCHES "${regex}")
    message(FATAL_ERROR "output does not match: ${regex}")
  endif()
  set(last_output "${out}${err}" PARENT_SCOPE)
endfunction()

# fails(REGEX ARGS...): exit status 1 with one line matching REGEX, and no
# file left in the scratch folder that was not there before.
function(fails regex)
  file(GLOB before "${SCRATCH}/*" "${SCRATCH}/.*")
  run(1 "${regex}" ${ARGN})
  if(NOT last_output MATCHES "${one_line}")
    message(FATAL_ERROR "not one line")
  endif()
  file(GLOB after "${SCRATCH}/*" "${SCRATCH}/.*")
  if(NOT "${after}" STREQUAL "${before}")
    message(FATAL_ERROR "a failed call left files: ${after}")
  endif()
endfunction()

# snr(REFERENCE TEST MIN [GAIN]): TEST is REFERENCE (times GAIN) within MIN dB,
# frame count for frame count.
function(snr reference test min)
  execute_process(COMMAND ${WAVTOOL} snr "${DRIVE}${reference}" "${DRIVE}${test}" ${ARGN}
                  RESULT_VARIABLE got OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("snr ${test}: ${out}${err}")
  if(got OR NOT out MATCHES "frames ([0-9]+) ([0-9]+) snr (-?[0-9.]+)")
    message(FATAL_ERROR "qvwavtool snr failed")
  endif()
  if(NOT CMAKE_MATCH_1 EQUAL CMAKE_MATCH_2)
    message(FATAL_ERROR "${test} has ${CMAKE_MATCH_2} frames, ${reference} ${CMAKE_MATCH_1}")
  endif()
  if(CMAKE_MATCH_3 LESS min)
    message(FATAL_ERROR "signal-to-noise ratio ${CMAKE_MATCH_3} dB, expected at least ${min}")
  endif()
endfunction()

# tail(FILE FROM OUT): the bytes of FILE from byte FROM (0-based) on, into OUT.
function(tail file from out)
  math(EXPR first "${from} + 1")
  execute_process(COMMAND tail -c +${first} "${file}" OUTPUT_FILE "${out}" RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "cannot cut ${file}")
  endif()
endfunction()

function(expect_same a b)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files "${a}" "${b}" RESULT_VARIABLE differ)
  if(differ)
    message(FATAL_ERROR "${a} differs from ${b}")
  endif()
endfunction()

if(SCENARIO STREQUAL "log")
  # Plain PCM everywhere: the file is the WAV's data chunk (after its 44-byte header).
  run(0 "logged 88320 frames \\(2.00 s\\) of 44100 Hz, 2 channels, 16 bits: 353280 bytes of PCM.*written"
      log -i "${DRIVE}${in}" -o "${S}/out.raw" -q)
  tail("${in}" 44 "${SCRATCH}/data")
  expect_same("${SCRATCH}/out.raw" "${SCRATCH}/data")
  file(REMOVE "${SCRATCH}/data")
  fails("the output .* is the input file" log -i "${DRIVE}${in}" -o "${DRIVE}${in}")
  expect_same("${in}" "${DEMO}")
  fails("input file .*missing.wav does not exist" log -i "${S}/missing.wav" -o "${S}/x.raw")
  fails("cannot read .*out.raw: " log -i "${S}/out.raw" -o "${S}/x.raw")
  if(NOT DRIVE)
    fails("--format ima-adpcm: compressed formats need Windows" log -i "${in}" -o "${S}/x.raw" --format ima-adpcm)
    return()
  endif()

  # Compressed: the same bytes encode puts in its data chunk (after the
  # RIFF header, a format chunk of 20 bytes, the fact chunk and the data
  # chunk's header), and they decode back to the signal.
  run(0 "logged 88320 frames .*: 90112 bytes of ima-adpcm \\(44100 Hz, 2 channels, 4 bits\\).*written"
      log -i "${DRIVE}${in}" -o "${S}/ima.raw" --format ima-adpcm -q)
  run(0 "written" encode -i "${DRIVE}${in}" -o "${S}/ima.wav" --format ima-adpcm -q)
  tail("${SCRATCH}/ima.wav" 60 "${SCRATCH}/data")
  expect_same("${SCRATCH}/ima.raw" "${SCRATCH}/data")
  run(0 "decoded 90112 bytes of ima-adpcm.*written"
      decode -i "${S}/ima.raw" -o "${S}/ima-short.wav" --format ima-adpcm -r 44100 -c 2 -q)
  # The exact name as `acm list` prints it (it holds semicolons: one argument here).
  execute_process(COMMAND ${EXE} decode -i "${S}/ima.raw" -o "${S}/ima-exact.wav" --format "IMA ADPCM, 44100 Hz; 4 bits; Stereo" -q
                  RESULT_VARIABLE got OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("decode by exact name -> ${got}\n${out}${err}")
  if(got)
    message(FATAL_ERROR "decoding by the exact name failed")
  endif()
  expect_same("${SCRATCH}/ima-short.wav" "${SCRATCH}/ima-exact.wav")
  # Headerless data has no fact chunk: the codec's padding of the last block stays.
  execute_process(COMMAND ${WAVTOOL} snr "${DRIVE}${in}" "${S}/ima-short.wav" OUTPUT_VARIABLE out)
  if(NOT out MATCHES "frames 88320 8[89][0-9][0-9][0-9] snr ([4-9][0-9])")
    message(FATAL_ERROR "headerless IMA ADPCM decoded to: ${out}")
  endif()

  fails("the codecs refuse to compress 44100 Hz, 2 channels, 16-bit PCM to ms-adpcm"
        log -i "${DRIVE}${in}" -o "${S}/x.raw" --format ms-adpcm)
  fails("gsm610 offers no format for 44100 Hz with 2 channels" log -i "${DRIVE}${in}" -o "${S}/x.raw" --format gsm610)
  fails("unknown format \"ogg\"" log -i "${DRIVE}${in}" -o "${S}/x.raw" --format ogg)

elseif(SCENARIO STREQUAL "dmo")
  set(dmo "Quorvel Test DMO")
  # Automatic types: the exact match (44100 Hz stereo); the DMO's gain, 0.5 by default.
  run(0 "in \\(type 44100 Hz, 2 ch, 16 bits\\), out type 44100 Hz, 2 ch, 16 bits.*processed 88320 frames \\(2.00 s\\) into 88320 frames, peak -14.0 dBFS.*written"
      dmo process "${dmo}" -i "${DRIVE}${in}" -o "${S}/half.wav" -q)
  snr("${in}" "${SCRATCH}/half.wav" 70 0.5)
  run(0 "peak -20.0 dBFS" dmo process "${dmo}" -i "${DRIVE}${in}" -o "${S}/quarter.wav" --auto -x 0=0.25 -q)
  snr("${in}" "${SCRATCH}/quarter.wav" 70 0.25)
  # --type N is the DMO's own type index, as the component's format dialog
  # hands it on: the DMO's second type has no wave format, so the listed
  # 48000 Hz stereo type (listed as 1) is its type 2.
  run(0 "in \\(type 48000 Hz, 2 ch, 16 bits\\), out type 48000 Hz, 2 ch, 16 bits.*peak -14.0 dBFS"
      dmo process "${dmo}" -i "${DRIVE}${in}" -o "${S}/typed.wav" --type 2 -q)
  execute_process(COMMAND ${WAVTOOL} snr "${DRIVE}${in}" "${S}/typed.wav" 0.5 OUTPUT_VARIABLE out)
  file(READ "${SCRATCH}/typed.wav" rate OFFSET 24 LIMIT 4 HEX)
  if(NOT rate STREQUAL "80bb0000" OR NOT out MATCHES "snr ([789][0-9]|1[0-9][0-9])")
    message(FATAL_ERROR "the typed output is not the same samples at 48000 Hz: rate ${rate}, ${out}")
  endif()
  fails("Can't start DMO ${dmo}: .*its type 1 on both" dmo process "${dmo}" -i "${DRIVE}${in}" -o "${S}/x.wav" --type 1)
  fails("${dmo} has no input type 9" dmo process "${dmo}" -i "${DRIVE}${in}" -o "${S}/x.wav" --type 9)
  fails("Can't start DMO ${dmo} Two Streams: it needs one input and one output stream"
        dmo process "${dmo} Two Streams" -i "${DRIVE}${in}" -o "${S}/x.wav")
  fails("Can't start DMO ${dmo} Failing Types: .*a wave type for 44100 Hz, 2 channels, 16-bit PCM"
        dmo process "${dmo} Failing Types" -i "${DRIVE}${in}" -o "${S}/x.wav")
  fails("no audio-effect DMO is called \"No Such DMO\"" dmo process "No Such DMO" -i "${DRIVE}${in}" -o "${S}/x.wav")
  fails("input file .*missing.wav does not exist" dmo process "${dmo}" -i "${S}/missing.wav" -o "${S}/x.wav")
  fails("the output .* is the input file" dmo process "${dmo}" -i "${DRIVE}${in}" -o "${DRIVE}${in}")
  expect_same("${in}" "${DEMO}")
  run(2 "--type and --auto exclude each other.*usage:" dmo process "${dmo}" -i "${DRIVE}${in}" -o "${S}/x.wav" --type 0 --auto)

elseif(SCENARIO STREQUAL "codecs")
  # Round trips, each with its signal-to-noise ratio (a few dB below what
  # was measured) and every frame back (the fact chunk drops the padding).
  execute_process(COMMAND ${WAVTOOL} tone "${S}/mono8k.wav" 8000 1 8000 RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "no test tone")
  endif()
  foreach(case "ima-adpcm;in;40;4 bits" "alaw;in;35;8 bits" "mulaw;in;35;8 bits" "gsm610;mono8k;28;0 bits")
    list(GET case 0 format)
    list(GET case 1 source)
    list(GET case 2 min)
    list(GET case 3 bits)
    run(0 "encoded [0-9]+ frames .* as ${format} \\([0-9]+ Hz, [12] channels?, ${bits}\\).*written"
        encode -i "${S}/${source}.wav" -o "${S}/${format}.wav" --format ${format} -q)
    run(0 "decoded [0-9]+ bytes of ${format} .*written" decode -i "${S}/${format}.wav" -o "${S}/${format}-back.wav" -q)
    snr("${SCRATCH}/${source}.wav" "${SCRATCH}/${format}-back.wav" ${min})
  endforeach()
  # The file keeps the codec's record: tag 0x0011 and its two extra bytes.
  file(READ "${SCRATCH}/ima-adpcm.wav" head LIMIT 60 HEX)
  if(NOT head MATCHES "^52494646........57415645666d74201400000011000200(44ac0000)........000804000200....6661637404000000(00590100)")
    message(FATAL_ERROR "unexpected encoded header: ${head}")
  endif()

  fails("unknown format \"frobnicate\"" encode -i "${DRIVE}${in}" -o "${S}/x.wav" --format frobnicate)
  fails("the codecs refuse to compress 44100 Hz, 2 channels, 16-bit PCM to ms-adpcm"
        encode -i "${DRIVE}${in}" -o "${S}/x.wav" --format ms-adpcm)
  fails("gsm610 offers no format for 44100 Hz with 2 channels" encode -i "${DRIVE}${in}" -o "${S}/x.wav" --format gsm610)
  fails("the output .* is the input file" encode -i "${DRIVE}${in}" -o "${DRIVE}${in}" --format alaw)
  fails("input file .*missing.wav does not exist" encode -i "${S}/missing.wav" -o "${S}/x.wav" --format alaw)
  fails("in.wav holds PCM already" decode -i "${DRIVE}${in}" -o "${S}/x.wav")
  fails("alaw.wav holds alaw \\(44100 Hz\\), not mulaw" decode -i "${S}/alaw.wav" -o "${S}/x.wav" --format mulaw)
  file(WRITE "${SCRATCH}/bytes.raw" "0123456789")
  fails("bytes.raw is no WAV file: say which format" decode -i "${S}/bytes.raw" -o "${S}/x.wav")
  fails("headerless data needs the exact format name" decode -i "${S}/bytes.raw" -o "${S}/x.wav" --format alaw)
  file(WRITE "${SCRATCH}/broken.wav" "RIFFxxxxWAVEjunkjunk")
  fails("cannot read .*broken.wav: (not a WAV file|the WAV file has no format chunk)"
        decode -i "${S}/broken.wav" -o "${S}/x.wav")
  expect_same("${in}" "${DEMO}")
else()
  message(FATAL_ERROR "unknown scenario ${SCENARIO}")
endif()
