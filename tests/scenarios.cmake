# Scenario tests: the simulator plays every example (and the built-in demo) and its standard
# output must equal the transcript beside it byte for byte; every invalid scenario must be
# refused with its one line; scenarios that stop the agent must end it as the agent ends.
set(NIMBAL_SCENARIO_RUNNER ${CMAKE_CURRENT_SOURCE_DIR}/scenarios/RunScenario.cmake)
set(NIMBAL_SCENARIO_ACTUAL ${CMAKE_CURRENT_BINARY_DIR}/scenario-output)
file(MAKE_DIRECTORY ${NIMBAL_SCENARIO_ACTUAL})

function(nimbal_scenario_test name mode scenario expected)
  add_test(NAME ${name}
    COMMAND ${CMAKE_COMMAND} -DSIM=$<TARGET_FILE:nimbal-copp-sim> -DSOURCE=${CMAKE_SOURCE_DIR}
            -DSCENARIO=${scenario} -DMODE=${mode} -DEXPECTED=${expected}
            -DACTUAL=${NIMBAL_SCENARIO_ACTUAL}/${name}.out ${ARGN}
            -P ${NIMBAL_SCENARIO_RUNNER})
  set_tests_properties(${name} PROPERTIES TIMEOUT 120)
endfunction()

nimbal_scenario_test(Scenario.demo transcript "" ${CMAKE_SOURCE_DIR}/examples/demo.expected)

file(GLOB NIMBAL_EXAMPLES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/examples/*.json)
foreach(example ${NIMBAL_EXAMPLES})
  get_filename_component(name ${example} NAME_WE)
  nimbal_scenario_test(Scenario.${name} transcript examples/${name}.json
                       ${CMAKE_SOURCE_DIR}/examples/${name}.expected)
endforeach()

# The advice on each example that asks for it, byte for byte.
file(GLOB NIMBAL_ADVICE CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/examples/*.advice)
foreach(advice ${NIMBAL_ADVICE})
  get_filename_component(name ${advice} NAME_WE)
  nimbal_scenario_test(Advice.${name} advise examples/${name}.json ${advice} -DRC=0)
endforeach()

file(GLOB NIMBAL_INVALID_SCENARIOS CONFIGURE_DEPENDS
     ${CMAKE_CURRENT_SOURCE_DIR}/scenarios/invalid/*.json)
foreach(scenario ${NIMBAL_INVALID_SCENARIOS})
  get_filename_component(name ${scenario} NAME_WE)
  nimbal_scenario_test(ScenarioInvalid.${name} invalid tests/scenarios/invalid/${name}.json
                       ${CMAKE_CURRENT_SOURCE_DIR}/scenarios/invalid/${name}.stderr)
endforeach()

file(GLOB NIMBAL_ABORTING_SCENARIOS CONFIGURE_DEPENDS
     ${CMAKE_CURRENT_SOURCE_DIR}/scenarios/abort/*.json)
foreach(scenario ${NIMBAL_ABORTING_SCENARIOS})
  get_filename_component(name ${scenario} NAME_WE)
  nimbal_scenario_test(ScenarioAbort.${name} abort tests/scenarios/abort/${name}.json
                       ${CMAKE_CURRENT_SOURCE_DIR}/scenarios/abort/${name}.expected
                       -DEXPECTED_STDERR=${CMAKE_CURRENT_SOURCE_DIR}/scenarios/abort/${name}.stderr)
endforeach()

# The unit tests start the simulator too.
add_dependencies(nimbal_tests nimbal-copp-sim)
