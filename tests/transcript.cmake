# The JSON Lines transcript of every example and of the demo must fit host/transcript/transcript.schema.json,
# and the schema must refuse wrong events. Debian's python3-jsonschema validates them, run by
# Debian's own interpreter (another python3 may come first on the path).
set(NIMBAL_TRANSCRIPT_VALIDATOR ${CMAKE_CURRENT_SOURCE_DIR}/transcript/ValidateTranscript.py)
set(NIMBAL_TRANSCRIPT_SCHEMA ${CMAKE_SOURCE_DIR}/host/transcript/transcript.schema.json)

function(nimbal_transcript_schema_test name)
  add_test(NAME ${name}
    COMMAND /usr/bin/python3 ${NIMBAL_TRANSCRIPT_VALIDATOR} ${NIMBAL_TRANSCRIPT_SCHEMA} ${ARGN}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
  set_tests_properties(${name} PROPERTIES TIMEOUT 120)
endfunction()

nimbal_transcript_schema_test(TranscriptSchema.refusesWrongEvents --self-check)
nimbal_transcript_schema_test(TranscriptSchema.demo $<TARGET_FILE:nimbal-copp-sim>)
file(GLOB NIMBAL_SCHEMA_EXAMPLES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/examples/*.json)
foreach(example ${NIMBAL_SCHEMA_EXAMPLES})
  get_filename_component(name ${example} NAME_WE)
  nimbal_transcript_schema_test(TranscriptSchema.${name} $<TARGET_FILE:nimbal-copp-sim>
                                examples/${name}.json)
endforeach()

# The preflight's JSON form: what fits, what does not, and an agent that would stop.
foreach(scenario examples/basic.json examples/vxlan-exhaustion.json
                 tests/scenarios/preflight/vxlan-more-keys-than-pool.json
                 tests/scenarios/abort/default-policer-over-shrunk-pool.json)
  get_filename_component(name ${scenario} NAME_WE)
  nimbal_transcript_schema_test(TranscriptSchema.preflight.${name} --preflight
                                $<TARGET_FILE:nimbal-copp-sim> ${scenario})
endforeach()

# The advisor's JSON form: advice that meets its goals.
nimbal_transcript_schema_test(TranscriptSchema.advice.advise-dhcp-flood --advise
                              $<TARGET_FILE:nimbal-copp-sim> examples/advise-dhcp-flood.json)
