# The manual page as man shows it: no groff warnings, every option and step of --help in it.
add_test(NAME ManPage.WarningFreeAndEveryOptionAndStep
         COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/man/CheckManPage.py
                 ${NIMBAL_SIM_MAN_PAGE_ROFF} $<TARGET_FILE:nimbal-copp-sim>)
set_tests_properties(ManPage.WarningFreeAndEveryOptionAndStep PROPERTIES TIMEOUT 60)
