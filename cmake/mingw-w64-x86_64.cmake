# Cross toolchain: Windows x64 with MinGW-w64 (Debian's g++-mingw-w64-x86-64-posix,
# posix threads), tests run under Wine through scripts/wine-run.
#
#   cmake -S . -B build/win64 -G Ninja \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
#
# Everything is linked -static, so executables and plug-in DLLs need no MinGW
# runtime DLLs beside them (under Wine a program that cannot find them exits
# silently with code 53).

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QUORVEL_MINGW_TRIPLE x86_64-w64-mingw32)

set(CMAKE_C_COMPILER   ${QUORVEL_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QUORVEL_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER  ${QUORVEL_MINGW_TRIPLE}-windres)
# CMake cannot derive the binutils prefix from the "-posix" compiler names,
# and the host's ar/ranlib know nothing of COFF: name them.
set(CMAKE_AR      ${QUORVEL_MINGW_TRIPLE}-gcc-ar-posix     CACHE FILEPATH "Archiver")
set(CMAKE_RANLIB  ${QUORVEL_MINGW_TRIPLE}-gcc-ranlib-posix CACHE FILEPATH "Ranlib")
set(CMAKE_NM      ${QUORVEL_MINGW_TRIPLE}-gcc-nm-posix     CACHE FILEPATH "nm")
set(CMAKE_OBJCOPY ${QUORVEL_MINGW_TRIPLE}-objcopy          CACHE FILEPATH "objcopy")
set(CMAKE_OBJDUMP ${QUORVEL_MINGW_TRIPLE}-objdump          CACHE FILEPATH "objdump")
set(CMAKE_STRIP   ${QUORVEL_MINGW_TRIPLE}-strip            CACHE FILEPATH "strip")
set(CMAKE_DLLTOOL ${QUORVEL_MINGW_TRIPLE}-dlltool          CACHE FILEPATH "dlltool")

# Libraries, headers and packages come from the MinGW sysroot only; programs
# (code generators and the like) from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${QUORVEL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT    "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Test programs run under Wine. The wrapper keeps its prefix, HOME and X
# display under <build>/wine; CMAKE_BINARY_DIR is the top of the build tree
# when project() reads this file (inside try_compile it names the scratch
# project, whose programs are never run through the emulator here).
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  get_filename_component(_quorvel_wine_run "${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run" ABSOLUTE)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${_quorvel_wine_run};--prefix-dir;${CMAKE_BINARY_DIR}/wine")
  unset(_quorvel_wine_run)
endif()
