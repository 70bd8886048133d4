# The installed package: three shared libraries, their public headers, find_package(tarn), pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS spar orb tarn EXPORT tarnTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT tarnTargets NAMESPACE tarn:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)

# A header is public when it exports something (SPAR_API, ORB_API, TARN_API), when it stands in the
# list below, or when a public header includes it. A new room needs no line here: what its library
# hides stays at home. Headers keep their paths: "spar/zRecord.h" in the tree and installed alike.
#
# The list: headers that export nothing because nothing of theirs is in a library: templates, and
# interfaces that add-ons and hosts implement themselves.
set(public_headers
    spar/jigAddon.h spar/zAsSharedPtr.h spar/zDirectObserver.h spar/zHeap.h spar/zList.h spar/zMap.h
    spar/zMemory.h spar/zPool.h spar/zRedBlack.h spar/zRedBlackCmp.h
    orb/CodeBookProperty.h orb/ContainerProperty.h
    tarn/movies/tnEncodedSink.h tarn/movies/tnXIMovieFile.h tarn/writers/writerErrors.h)

# Where the header that is included as `name` stands in the tree.
function(tarn_header_path name out)
    set(root ${PROJECT_SOURCE_DIR})
    if(NOT name MATCHES "^tarn/")
        string(APPEND root /platform)
    endif()
    set(${out} ${root}/${name} PARENT_SCOPE)
endfunction()

file(GLOB candidates CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/platform
     ${PROJECT_SOURCE_DIR}/platform/spar/*.h ${PROJECT_SOURCE_DIR}/platform/orb/*.h
     ${PROJECT_SOURCE_DIR}/platform/orb/container/*.h)
file(GLOB tarn_candidates CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tarn/*.h
     ${PROJECT_SOURCE_DIR}/tarn/*/*.h)
foreach(name ${candidates} ${tarn_candidates})
    tarn_header_path(${name} path)
    file(STRINGS ${path} exports REGEX "(SPAR|ORB|TARN)_API" LIMIT_COUNT 1)
    if(exports)
        list(APPEND public_headers ${name})
    endif()
endforeach()

set(waiting ${public_headers})
while(waiting)
    list(POP_FRONT waiting name)
    tarn_header_path(${name} path)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
    file(STRINGS ${path} includes REGEX "^#include \"")
    foreach(line ${includes})
        string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}")
        if(NOT included IN_LIST public_headers)
            list(APPEND public_headers ${included})
            list(APPEND waiting ${included})
        endif()
    endforeach()
endwhile()

list(REMOVE_DUPLICATES public_headers)
list(SORT public_headers)
foreach(name ${public_headers})
    tarn_header_path(${name} path)
    cmake_path(GET name PARENT_PATH folder)
    install(FILES ${path} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
endforeach()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tarnConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/tarnConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/tarnConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/tarnConfig.cmake ${CMAKE_BINARY_DIR}/tarnConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarn)

# From the folder of the .pc files to the prefix, so that an installed tree can move as a whole.
file(RELATIVE_PATH tarn_pc_up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
cmake_path(SET tarn_pc_up NORMALIZE "${tarn_pc_up}")
string(REGEX REPLACE "/$" "" tarn_pc_up "${tarn_pc_up}")
foreach(kind LIBDIR INCLUDEDIR)
    set(tarn_pc_${kind} ${CMAKE_INSTALL_${kind}})
    if(NOT IS_ABSOLUTE "${tarn_pc_${kind}}")
        string(PREPEND tarn_pc_${kind} "\${prefix}/")
    endif()
endforeach()
foreach(library spar orb tarn)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in ${CMAKE_BINARY_DIR}/${library}.pc @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
