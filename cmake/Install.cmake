# What `cmake --install` puts where. tests/package/installed-files.txt lists the result.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qormon3)

install(TARGETS qormon3 EXPORT qormon3Targets)
file(GLOB public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qormon3)

# The CMake package.
install(EXPORT qormon3Targets NAMESPACE qormon3:: DESTINATION ${package_dir})
configure_package_config_file(cmake/qormon3Config.cmake.in qormon3Config.cmake
    INSTALL_DESTINATION ${package_dir}
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(qormon3ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/qormon3Config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/qormon3ConfigVersion.cmake
    DESTINATION ${package_dir})

# The pkg-config file. It finds the prefix from its own place, so that the tree can be moved.
file(RELATIVE_PATH pkgconfig_prefix
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pkgconfig_prefix ${pkgconfig_prefix})
set(pkgconfig_libdir "\${prefix}")
set(pkgconfig_includedir "\${prefix}")
cmake_path(APPEND pkgconfig_libdir ${CMAKE_INSTALL_LIBDIR})
cmake_path(APPEND pkgconfig_includedir ${CMAKE_INSTALL_INCLUDEDIR} qormon3)
set(pkgconfig_private ${CMAKE_THREAD_LIBS_INIT})
foreach(library IN LISTS CMAKE_DL_LIBS)
    list(APPEND pkgconfig_private -l${library})
endforeach()
list(JOIN pkgconfig_private " " pkgconfig_private)
configure_file(cmake/qormon3.pc.in qormon3.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qormon3.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Debian wants manuals compressed, and the notice under this name.
set(manual docs/man/qormon.1)
set(notice_name NOTICE)
if(CPACK_GENERATOR STREQUAL "DEB")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${manual})
    file(ARCHIVE_CREATE OUTPUT ${PROJECT_BINARY_DIR}/qormon.1.gz
        PATHS ${PROJECT_SOURCE_DIR}/${manual} FORMAT raw COMPRESSION GZip
        COMPRESSION_LEVEL 9)
    set(manual ${PROJECT_BINARY_DIR}/qormon.1.gz)
    set(notice_name copyright)
endif()

# The tool finds the library from its own place too.
if(QORMON3_BUILD_TOOL)
    file(RELATIVE_PATH library_from_tool ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    if(APPLE)
        set(tool_place @loader_path)
    else()
        set(tool_place $ORIGIN)
    endif()
    set_target_properties(qormon PROPERTIES INSTALL_RPATH ${tool_place}/${library_from_tool})
    install(TARGETS qormon)
    install(FILES ${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

# What a person reads, placed so that the links between the texts hold.
install(FILES README.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES bench/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/bench)
install(FILES NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME ${notice_name})
file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
file(GLOB examples CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/examples/*.c ${PROJECT_SOURCE_DIR}/examples/*.cpp
    ${PROJECT_SOURCE_DIR}/examples/*.conf)
install(FILES ${examples} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
