# cmake --install [--prefix DIR]: both libraries with their SONAME links, the
# public headers (include/CMakeLists.txt), pkg-config files, a CMake package
# with imported targets and a version file, and the tool.
include(CMakePackageConfigHelpers)

set(CANTRIX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zelto_cantrix)

install(TARGETS zelto_manager zelto_cantrix EXPORT zelto_cantrix_targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS cantrix RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

# find_package(zelto_cantrix) gives zelto_cantrix::zelto_cantrix (which
# brings zelto_cantrix::zelto_manager along) and zelto_cantrix::zelto_manager.
install(EXPORT zelto_cantrix_targets NAMESPACE zelto_cantrix:: DESTINATION ${CANTRIX_CMAKE_DIR}
        FILE zelto_cantrixTargets.cmake COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/zelto_cantrixConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/zelto_cantrixConfig.cmake
                              INSTALL_DESTINATION ${CANTRIX_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zelto_cantrixConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zelto_cantrixConfig.cmake ${PROJECT_BINARY_DIR}/zelto_cantrixConfigVersion.cmake
        DESTINATION ${CANTRIX_CMAKE_DIR} COMPONENT development)

# pkg-config: zelto_cantrix requires zelto_manager, whose table the module is
# brought up with.
file(RELATIVE_PATH CANTRIX_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" CANTRIX_PC_TO_PREFIX "${CANTRIX_PC_TO_PREFIX}")
foreach(pc zelto_manager zelto_cantrix)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT development)
endforeach()
