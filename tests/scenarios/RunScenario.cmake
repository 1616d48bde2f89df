# Plays one scenario with the simulator and checks what it wrote.
#   SIM        the simulator
#   SOURCE     the source tree; the scenario runs there so that its path reads the same anywhere
#   SCENARIO   the scenario, relative to SOURCE; empty for the built-in demo
#   MODE       transcript: ends with 0 and writes EXPECTED on standard output, byte for byte
#              invalid:    ends with 1, writes nothing on standard output and the one line of
#                          EXPECTED on standard error
#              advise:     with --advise, ends with RC and writes EXPECTED on standard output
#              abort:      ends abnormally, writes EXPECTED on standard output and every line of
#                          EXPECTED_STDERR somewhere on standard error
#   ACTUAL     where to leave the output when it differs
set(args)
if(MODE STREQUAL "advise")
  list(APPEND args --advise)
endif()
if(SCENARIO)
  list(APPEND args ${SCENARIO})
endif()
execute_process(COMMAND ${SIM} ${args}
  WORKING_DIRECTORY ${SOURCE}
  OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
file(READ ${EXPECTED} expected)

function(differs what actual wanted)
  file(WRITE ${ACTUAL} "${actual}")
  execute_process(COMMAND diff -u ${EXPECTED} ${ACTUAL} OUTPUT_VARIABLE diff)
  message(FATAL_ERROR "${what} differs from ${EXPECTED} (actual output in ${ACTUAL}):\n${diff}")
endfunction()

if(MODE STREQUAL "transcript" OR MODE STREQUAL "advise")
  # A transcript ends with 0; advice with the status its verdict gives (RC).
  set(want_rc 0)
  if(MODE STREQUAL "advise")
    set(want_rc "${RC}")
  endif()
  if(NOT rc STREQUAL "${want_rc}")
    message(FATAL_ERROR "exit status ${rc}, expected ${want_rc}; standard error:\n${err}")
  endif()
  if(NOT out STREQUAL expected)
    differs("standard output" "${out}" "${expected}")
  endif()
elseif(MODE STREQUAL "invalid")
  if(NOT rc STREQUAL "1")
    message(FATAL_ERROR "exit status ${rc}, expected 1; standard error:\n${err}")
  endif()
  if(NOT out STREQUAL "")
    message(FATAL_ERROR "an invalid scenario ran:\n${out}")
  endif()
  if(NOT err STREQUAL expected)
    differs("standard error" "${err}" "${expected}")
  endif()
elseif(MODE STREQUAL "abort")
  if(rc STREQUAL "0" OR rc STREQUAL "1")
    message(FATAL_ERROR "exit status ${rc}, expected an abnormal end; standard error:\n${err}")
  endif()
  if(NOT out STREQUAL expected)
    differs("standard output" "${out}" "${expected}")
  endif()
  file(STRINGS ${EXPECTED_STDERR} lines)
  foreach(line IN LISTS lines)
    string(FIND "${err}" "${line}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "standard error lacks \"${line}\":\n${err}")
    endif()
  endforeach()
else()
  message(FATAL_ERROR "unknown MODE ${MODE}")
endif()
