# cmake --install: the header, both libraries, the CMake package (imported
# targets pelcast::pelcast for the shared library and pelcast::pelcast_static),
# pkg-config's pelcast.pc and the programs.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(FILES ${PROJECT_SOURCE_DIR}/include/pelcast/pelcast.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelcast)
install(TARGETS pelcast_shared pelcast_static EXPORT pelcastTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS pelcast RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(program zpak)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

set(PELCAST_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/pelcast)
install(EXPORT pelcastTargets NAMESPACE pelcast:: DESTINATION ${PELCAST_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/pelcastConfig.cmake.in
  ${PROJECT_BINARY_DIR}/pelcastConfig.cmake INSTALL_DESTINATION ${PELCAST_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/pelcastConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/pelcastConfig.cmake
              ${PROJECT_BINARY_DIR}/pelcastConfigVersion.cmake
        DESTINATION ${PELCAST_CMAKE_DIR})

# The .pc file finds the prefix from where it lies, so an installed tree
# can be moved (or installed with cmake --install --prefix).
file(RELATIVE_PATH PELCAST_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/pelcast.pc.in ${PROJECT_BINARY_DIR}/pelcast.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/pelcast.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
