include(CMakePackageConfigHelpers)

install(TARGETS tvxcore EXPORT tvxcoreTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/tvxcore DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/tvxcore/Version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tvxcore)

set(_cfgdir ${CMAKE_INSTALL_LIBDIR}/cmake/tvxcore)
install(EXPORT tvxcoreTargets NAMESPACE tvxcore:: DESTINATION ${_cfgdir})
configure_package_config_file(cmake/tvxcoreConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/tvxcoreConfig.cmake
                              INSTALL_DESTINATION ${_cfgdir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tvxcoreConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tvxcoreConfig.cmake
              ${PROJECT_BINARY_DIR}/tvxcoreConfigVersion.cmake
        DESTINATION ${_cfgdir})

# The .pc file finds its prefix relative to itself, so an installed tree can move.
file(RELATIVE_PATH TVXCORE_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" TVXCORE_PC_TO_PREFIX "${TVXCORE_PC_TO_PREFIX}")
configure_file(cmake/tvxcore.pc.in ${PROJECT_BINARY_DIR}/tvxcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tvxcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
