include(CMakePackageConfigHelpers)
set(ZELTO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZeltoCore)

install(TARGETS ZeltoCore EXPORT ZeltoCoreTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zelto)
install(DIRECTORY core utils DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zelto
        FILES_MATCHING PATTERN "*.h" PATTERN "internal" EXCLUDE)
install(EXPORT ZeltoCoreTargets NAMESPACE ZeltoCore:: DESTINATION ${ZELTO_CMAKE_DIR})

configure_package_config_file(cmake/ZeltoCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZeltoCoreConfig.cmake INSTALL_DESTINATION ${ZELTO_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZeltoCoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZeltoCoreConfig.cmake
              ${PROJECT_BINARY_DIR}/ZeltoCoreConfigVersion.cmake
        DESTINATION ${ZELTO_CMAKE_DIR})
if(ZELTO_BUILD_TOOLS)
  install(TARGETS zelto RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
