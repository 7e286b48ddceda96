# What `cmake --install` puts in place: the conversion library (and its trace
# build), the platform stand-ins, the headers, the programs, and a CMake
# package config plus a pkg-config file for the library.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(WAYSHUNT_TRACE_DIR ${CMAKE_INSTALL_LIBDIR}/convertwayshunt-trace)

# Installed libraries find each other beside themselves, the trace build one
# folder up, programs in ../lib.
set_target_properties(convertwayshunt platcore platctl portmap toolkit PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(convertwayshunt_open PROPERTIES INSTALL_RPATH "$ORIGIN/..")

install(TARGETS convertwayshunt LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS convertwayshunt_open LIBRARY DESTINATION ${WAYSHUNT_TRACE_DIR})
install(TARGETS platcore platctl portmap toolkit LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wayshunt FILES_MATCHING PATTERN "*.h")
install(FILES ${CMAKE_SOURCE_DIR}/feature/wayshunt/wayshunt.h ${CMAKE_SOURCE_DIR}/feature/wayshunt/cli/wayshunt_cli.h
              ${CMAKE_SOURCE_DIR}/infra/convert_libs/comps/libwayshuntconvert/include/wayshunt_cnv.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wayshunt)
# The stand-ins' administrative interface; their own headers stay behind.
install(DIRECTORY ${CMAKE_SOURCE_DIR}/platform/admin/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wayshunt FILES_MATCHING PATTERN "*.h")

foreach(program plat-hub-listener wayshunt-convert)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

# find_package(convertwayshunt): the imported target convertwayshunt::convertwayshunt.
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/convertwayshunt-config.cmake.in
                              ${CMAKE_BINARY_DIR}/convertwayshunt-config.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/convertwayshunt
                              PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR WAYSHUNT_TRACE_DIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/convertwayshunt-config-version.cmake
                                 VERSION ${WAYSHUNT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/convertwayshunt-config.cmake ${CMAKE_BINARY_DIR}/convertwayshunt-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/convertwayshunt)

# pkg-config convertwayshunt; the prefix is found from the file's own place,
# so an installed tree can be moved.
file(RELATIVE_PATH WAYSHUNT_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" WAYSHUNT_PC_TO_PREFIX "${WAYSHUNT_PC_TO_PREFIX}")
configure_file(${CMAKE_SOURCE_DIR}/cmake/convertwayshunt.pc.in ${CMAKE_BINARY_DIR}/convertwayshunt.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/convertwayshunt.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
