include(CMakePackageConfigHelpers)

# Three components, one Debian package each (cmake/Packaging.cmake): the libraries (runtime),
# what a consumer builds against (development) and the simulated agent (simulator).
install(TARGETS NimbalPlatform NimbalQosShared EXPORT NimbalTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/platform/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nimbal/platform COMPONENT development
  FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${CMAKE_SOURCE_DIR}/NimbalQos/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nimbal/NimbalQos COMPONENT development
  FILES_MATCHING PATTERN "*.h")

install(EXPORT NimbalTargets NAMESPACE Nimbal:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Nimbal
  COMPONENT development)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/NimbalConfig.cmake.in
  ${CMAKE_BINARY_DIR}/NimbalConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Nimbal)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/NimbalConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/NimbalConfig.cmake ${CMAKE_BINARY_DIR}/NimbalConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Nimbal COMPONENT development)

configure_file(${CMAKE_SOURCE_DIR}/cmake/nimbal-qos.pc.in ${CMAKE_BINARY_DIR}/nimbal-qos.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/nimbal-qos.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# The simulated agent, its manual page, the schema of its JSON transcript and the examples.
if(TARGET nimbal-copp-sim)
  install(TARGETS nimbal-copp-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT simulator)
  install(FILES ${NIMBAL_SIM_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT simulator)
  install(FILES ${CMAKE_SOURCE_DIR}/host/transcript/transcript.schema.json
    DESTINATION ${NIMBAL_SIM_DOCDIR} COMPONENT simulator)
  install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples/ DESTINATION ${NIMBAL_SIM_DOCDIR}/examples
    COMPONENT simulator FILES_MATCHING PATTERN "*.json")
endif()
