# Installs the build tree into a folder of its own, builds the example
# consumer project against it with find_package(Quorvel CONFIG), and runs it.
#   -DBUILD=<build tree>  -DSOURCE=<examples/consumer>  -DWORK=<folder>
#   -DGENERATOR=...  -DTOOLCHAIN=<file or empty>  -DEMULATOR=<a|b or empty>  -DDRIVE=<Z: or empty>
file(REMOVE_RECURSE "${WORK}")
function(step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("${ARGN}\n${out}${err}")
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc})")
  endif()
  set(step_output "${out}" PARENT_SCOPE)
endfunction()
step(${CMAKE_COMMAND} --install "${BUILD}" --prefix "${WORK}/install")
set(configure ${CMAKE_COMMAND} -S "${SOURCE}" -B "${WORK}/build" -G "${GENERATOR}" -DCMAKE_BUILD_TYPE=Release
    "-DCMAKE_PREFIX_PATH=${WORK}/install")
if(TOOLCHAIN)
  # A cross build searches only its own sysroot for packages: name the folder.
  list(APPEND configure "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}" "-DQuorvel_DIR=${WORK}/install/lib/cmake/Quorvel")
endif()
step(${configure})
step(${CMAKE_COMMAND} --build "${WORK}/build")
string(REPLACE "|" ";" EMULATOR "${EMULATOR}")
file(GLOB program "${WORK}/build/quorvel_consumer" "${WORK}/build/quorvel_consumer.exe")
step(${EMULATOR} ${program} "${DRIVE}${WORK}/consumer.wav")
if(NOT step_output MATCHES "component: TSRVSTHost.*wrote 25600 frames.*\"class\": \"TSRGainFilter\"")
  message(FATAL_ERROR "the consumer did not run its chain")
endif()
