include(CMakePackageConfigHelpers)

install(TARGETS NimbalPlatform NimbalQosShared EXPORT NimbalTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/platform/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nimbal/platform FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${CMAKE_SOURCE_DIR}/NimbalQos/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nimbal/NimbalQos FILES_MATCHING PATTERN "*.h")
if(TARGET nimbal-copp-sim)
  install(TARGETS nimbal-copp-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT NimbalTargets NAMESPACE Nimbal:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Nimbal)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/NimbalConfig.cmake.in
  ${CMAKE_BINARY_DIR}/NimbalConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Nimbal)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/NimbalConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/NimbalConfig.cmake ${CMAKE_BINARY_DIR}/NimbalConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Nimbal)

configure_file(${CMAKE_SOURCE_DIR}/cmake/nimbal-qos.pc.in ${CMAKE_BINARY_DIR}/nimbal-qos.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/nimbal-qos.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
