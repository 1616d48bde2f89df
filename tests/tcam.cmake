# The TCAM-agent variant as the factory builds it with its toggle on. The toggle is read once per
# process, so these tests live in a program of their own whose main reads it from a toggle file
# that says on, before any test runs.
add_executable(nimbal_tcam_variant_tests ${CMAKE_CURRENT_SOURCE_DIR}/tcam/TcamVariantToggleOnTest.cpp)
target_link_libraries(nimbal_tcam_variant_tests PRIVATE NimbalQosShared NimbalPlatform
  GTest::gtest)
target_include_directories(nimbal_tcam_variant_tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
gtest_discover_tests(nimbal_tcam_variant_tests DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
