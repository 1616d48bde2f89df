# Model-based random histories: the simulated agent plays seeded random steps and the chip is
# checked against a model after every step. CI plays 8 x 10 histories of 1,250 steps on the
# release build (100,000 steps) and of 150 steps under the sanitizers; `make random-long`
# plays long ones.
file(GLOB NIMBAL_RANDOM_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/random/*.cpp)
add_executable(nimbal_random_histories ${NIMBAL_RANDOM_SOURCES})
target_link_libraries(nimbal_random_histories PRIVATE NimbalHost NimbalQosShared NimbalPlatform
  GTest::gtest)
target_include_directories(nimbal_random_histories PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})

add_test(NAME HistoryChecks COMMAND nimbal_random_histories --gtest_filter=-RandomHistories.*)
set_tests_properties(HistoryChecks PROPERTIES TIMEOUT 300)

if(NIMBAL_SANITIZE)
  set(NIMBAL_RANDOM_STEPS 150)
else()
  set(NIMBAL_RANDOM_STEPS 1250)
endif()
foreach(batch RANGE 0 7)
  math(EXPR seed "${batch} * 10 + 1")
  add_test(NAME RandomHistories.seed${seed}
    COMMAND nimbal_random_histories --gtest_filter=RandomHistories.* --seed=${seed}
            --histories=10 --steps=${NIMBAL_RANDOM_STEPS})
  set_tests_properties(RandomHistories.seed${seed} PROPERTIES TIMEOUT 900)
endforeach()
