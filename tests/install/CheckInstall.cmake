# Installs the build into a fresh prefix and checks that a consumer finds everything there:
# both libraries, the public headers, the CMake package and a relocatable pkg-config file.
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${rc}")
endif()
foreach(f lib/libNimbalQosShared.so lib/libNimbalPlatform.so
          include/nimbal/NimbalQos/NimbalQosSharedHelper.h
          include/nimbal/NimbalQos/NimbalQosProtectionHelper.h
          include/nimbal/platform/Kiv/Ptr.h
          lib/cmake/Nimbal/NimbalConfig.cmake lib/cmake/Nimbal/NimbalTargets.cmake
          lib/pkgconfig/nimbal-qos.pc)
  if(NOT EXISTS ${PREFIX}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${PREFIX}/lib/pkgconfig
                        pkg-config --cflags --libs nimbal-qos
                RESULT_VARIABLE rc OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know nimbal-qos")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(COMMAND ${CXX} ${flags} -fsyntax-only ${CMAKE_CURRENT_LIST_DIR}/consumer/consumer.cpp
                RESULT_VARIABLE rc ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "a consumer does not compile against the installed headers:\n${err}")
endif()
file(REMOVE_RECURSE ${PREFIX})
