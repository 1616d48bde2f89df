add_test(NAME Install.LibrariesHeadersPackageAndPkgConfig
         COMMAND ${CMAKE_COMMAND} -DBUILD_DIR=${CMAKE_BINARY_DIR}
                 -DPREFIX=${CMAKE_BINARY_DIR}/install-check -DCXX=${CMAKE_CXX_COMPILER}
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/install/CheckInstall.cmake)
