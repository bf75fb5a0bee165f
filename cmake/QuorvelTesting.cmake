# GoogleTest: Debian's libgtest-dev natively; the cross build compiles the
# sources Debian ships in /usr/src/googletest.
if(QUORVEL_BUILD_TESTS)
  if(CMAKE_CROSSCOMPILING)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    # Newer googletest sources define these aliases themselves.
    if(NOT TARGET GTest::gtest)
      add_library(GTest::gtest ALIAS gtest)
    endif()
    if(NOT TARGET GTest::gtest_main)
      add_library(GTest::gtest_main ALIAS gtest_main)
    endif()
  else()
    find_package(GTest REQUIRED)
  endif()
  add_library(quorvel_gtest_main INTERFACE)
  target_link_libraries(quorvel_gtest_main INTERFACE GTest::gtest GTest::gtest_main)
endif()

# Registers a test program with CTest. Native programs run directly; cross
# built ones run through CMAKE_CROSSCOMPILING_EMULATOR (the Wine wrapper),
# which add_test applies by itself to targets of the project.
function(quorvel_add_test target)
  cmake_parse_arguments(ARG "" "TIMEOUT" "LABELS" ${ARGN})
  add_test(NAME ${target} COMMAND ${target})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set_tests_properties(${target} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  if(ARG_LABELS)
    set_tests_properties(${target} PROPERTIES LABELS "${ARG_LABELS}")
  endif()
endfunction()
