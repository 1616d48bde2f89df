# The factory as the agent reaches it: the library is loaded with dlopen by a program that does
# not link it, once per toggle setting, each in a process of its own.
add_executable(nimbal_factory_check ${CMAKE_CURRENT_SOURCE_DIR}/factory/FactoryCheck.cpp)
target_link_libraries(nimbal_factory_check PRIVATE NimbalPlatform ${CMAKE_DL_LIBS})
target_include_directories(nimbal_factory_check PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_definitions(nimbal_factory_check PRIVATE
  NIMBAL_QOS_LIBRARY_FILE="$<TARGET_FILE:NimbalQosShared>")
add_dependencies(nimbal_factory_check NimbalQosShared)

set(NIMBAL_FACTORY_TOGGLES ${CMAKE_CURRENT_BINARY_DIR}/factory-toggles)
add_test(NAME FactoryToggles.Setup
  COMMAND ${CMAKE_COMMAND} -DDIR=${NIMBAL_FACTORY_TOGGLES}
          -P ${CMAKE_CURRENT_SOURCE_DIR}/factory/WriteToggles.cmake)
set_tests_properties(FactoryToggles.Setup PROPERTIES FIXTURES_SETUP FactoryToggles)

add_test(NAME FactoryProcess.ToggleOnBuildsTcamVariant
  COMMAND nimbal_factory_check Nimbal::QosTcamAclHelperV1)
set_tests_properties(FactoryProcess.ToggleOnBuildsTcamVariant PROPERTIES
  ENVIRONMENT NIMBAL_TOGGLE_DIR=${NIMBAL_FACTORY_TOGGLES}/on
  FIXTURES_REQUIRED FactoryToggles)

add_test(NAME FactoryProcess.NoToggleFileBuildsV1
  COMMAND nimbal_factory_check Nimbal::QosAclHelperV1)
set_tests_properties(FactoryProcess.NoToggleFileBuildsV1 PROPERTIES
  ENVIRONMENT NIMBAL_TOGGLE_DIR=${NIMBAL_FACTORY_TOGGLES}/off
  FIXTURES_REQUIRED FactoryToggles)
