# cmake --install: the libraries (one target per folder, Quorvel::<folder>),
# the package's shared library, the command-line host, the public headers
# under include/quorvel/<folder>/, and a package configuration for
# find_package(Quorvel CONFIG).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Installed archives carry the package's name, so that they cannot clash
# with other libraries in a shared lib folder.
set(_qv_libs platform frame vst2 vst3 asio asio_convert media package)
set(_qv_header_folders platform frame vst2 vst3 asio media package)
if(TARGET media_win32)
  list(APPEND _qv_libs media_win32)
endif()
if(TARGET mastervolume)
  list(APPEND _qv_libs mastervolume)
  list(APPEND _qv_header_folders mastervolume)
endif()
if(TARGET mixer)
  list(APPEND _qv_libs mixer)
  list(APPEND _qv_header_folders mixer)
endif()
if(TARGET dshow)
  list(APPEND _qv_libs dshow_filterkit dshow)
  list(APPEND _qv_header_folders dshow)
endif()
foreach(lib ${_qv_libs})
  set_target_properties(${lib} PROPERTIES OUTPUT_NAME quorvel_${lib})
endforeach()

install(TARGETS ${_qv_libs} quorvelpkg
  EXPORT QuorvelTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS quorvel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(folder ${_qv_header_folders})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorvel/${folder}
          FILES_MATCHING PATTERN "*.h")
endforeach()

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Quorvel)
install(EXPORT QuorvelTargets NAMESPACE Quorvel:: DESTINATION ${config_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QuorvelConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/QuorvelConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QuorvelConfigVersion.cmake
  VERSION 0.1.0 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QuorvelConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/QuorvelConfigVersion.cmake
        DESTINATION ${config_dir})
