# Debian packages, one per install component (cmake/Install.cmake), made by `make package`:
#   libnimbalqosshared<N>   the CoPP library and the platform it needs (named for the soname)
#   libnimbalqosshared-dev  headers, the .so links, the CMake package and the pkg-config file
#   nimbal-copp-sim         the simulated agent, its manual page, schema and examples
# The version of every package is the project's.
get_target_property(NIMBAL_QOS_SOVERSION NimbalQosShared SOVERSION)
set(NIMBAL_RUNTIME_PACKAGE libnimbalqosshared${NIMBAL_QOS_SOVERSION})
set(NIMBAL_DEV_PACKAGE libnimbalqosshared-dev)
set(NIMBAL_SIM_PACKAGE nimbal-copp-sim)
set(NIMBAL_PACKAGE_MAINTAINER "Nimbal CoPP developers <nimbal-copp@example.org>"
    CACHE STRING "Maintainer field of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME nimbal)
set(CPACK_PACKAGE_VENDOR Nimbal)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${NIMBAL_PACKAGE_PREFIX})
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development simulator)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${NIMBAL_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Dependencies on system libraries come from the binaries; the libraries of this project are
# found in the build tree, and the packages that hold them are named below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_SIMULATOR_DEPENDS runtime)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${NIMBAL_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The shlibs file tells dpkg-shlibdeps of other packages which package holds each soname; the
# trigger has ldconfig run once for all the libraries installed in one go.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/cmake/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"Control-plane policing library of the Nimbal switch agent
libNimbalQosShared is the CoPP library that the Nimbal switch agent loads to
rate-limit the packets the switch sends to its own CPU: per class, per CPU
queue and per (module, port, queue), with per-port default policers, VXLAN
entries, counters, show tables and a verify command.
.
This package also holds libNimbalPlatform, the platform the library plugs
into: the entity framework, the agent's QoS state and an SDK shim over a
simulated switch chip.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${NIMBAL_DEV_PACKAGE})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"Control-plane policing library of the Nimbal switch agent (development files)
libNimbalQosShared is the CoPP library that the Nimbal switch agent loads to
rate-limit the packets the switch sends to its own CPU.
.
This package holds what a program needs to build against the library and
its platform: the headers, the unversioned shared library links, the CMake
package (find_package(Nimbal)) and the pkg-config file (nimbal-qos).")

set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME ${NIMBAL_SIM_PACKAGE})
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION net)
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION
"Simulated Nimbal switch agent for control-plane policing
nimbal-copp-sim builds a switch from a scenario file, loads the CoPP library
as the Nimbal agent does, plays the scenario's steps (police actions, VXLAN,
clock, traffic, counters, verify) on a virtual clock and prints what an
operator would see. It can also write the run as JSON Lines, chart the
traffic, and tell before a change whether the switch has room for it.
.
This package holds the program, its manual page, the JSON Schema of its
transcript and example scenarios.")

# Debian wants a copyright file and a changelog in every package's documentation folder.
string(TIMESTAMP NIMBAL_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component runtime development simulator)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(NIMBAL_PACKAGE_SOURCE nimbal)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/packaging/changelog.in
    ${CMAKE_BINARY_DIR}/packaging/${package}/changelog @ONLY)
  add_custom_command(
    OUTPUT ${CMAKE_BINARY_DIR}/packaging/${package}/changelog.gz
    COMMAND sh -c "gzip -9n < changelog > changelog.gz"
    DEPENDS ${CMAKE_BINARY_DIR}/packaging/${package}/changelog
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/packaging/${package}
    VERBATIM)
  list(APPEND NIMBAL_PACKAGE_CHANGELOGS ${CMAKE_BINARY_DIR}/packaging/${package}/changelog.gz)
  install(FILES ${CMAKE_SOURCE_DIR}/cmake/packaging/copyright
                ${CMAKE_BINARY_DIR}/packaging/${package}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
endforeach()
add_custom_target(nimbal-package-changelogs ALL DEPENDS ${NIMBAL_PACKAGE_CHANGELOGS})

include(CPack)
