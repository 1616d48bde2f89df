# The fuzzers' inputs replayed in the ordinary builds: the committed corpora and every
# regression input, and the properties of the step decoder that keep the step fuzzer honest.
add_executable(nimbal_fuzz_replay_tests ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/FuzzReplayTest.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/CaptureFuzzReplayTest.cpp)
target_link_libraries(nimbal_fuzz_replay_tests PRIVATE NimbalTestTree NimbalFuzzTargets GTest::gtest_main)
gtest_discover_tests(nimbal_fuzz_replay_tests DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
