# The installed package: three shared libraries, their public headers, find_package(tarn), pkg-config.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS spar orb tarn EXPORT tarnTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT tarnTargets NAMESPACE tarn:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)

# Public headers keep their paths: "spar/zRecord.h" in the tree and installed alike. Headers of
# folders' inner works bear names that none of these patterns meets.
file(GLOB spar_headers ${PROJECT_SOURCE_DIR}/platform/spar/[jxz]*.h ${PROJECT_SOURCE_DIR}/platform/spar/export.h
     ${PROJECT_SOURCE_DIR}/platform/spar/threadSafety.h ${PROJECT_SOURCE_DIR}/platform/spar/trace.h)
file(GLOB orb_headers ${PROJECT_SOURCE_DIR}/platform/orb/[A-Z]*.h ${PROJECT_SOURCE_DIR}/platform/orb/export.h)
list(FILTER orb_headers EXCLUDE REGEX "/(TrackPipe|MovieQueue)\\.h$")
install(FILES ${spar_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/spar)
install(FILES ${orb_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orb)
install(FILES ${PROJECT_SOURCE_DIR}/platform/orb/container/MovieFile.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orb/container)
install(FILES ${PROJECT_SOURCE_DIR}/tarn/export.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarn)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tarn/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarn
        FILES_MATCHING PATTERN "tn*.h" PATTERN "orbConversions.h" PATTERN "writerErrors.h")

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tarnConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/tarnConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/tarnConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/tarnConfig.cmake ${CMAKE_BINARY_DIR}/tarnConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)

foreach(library spar orb tarn)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in ${CMAKE_BINARY_DIR}/${library}.pc @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
