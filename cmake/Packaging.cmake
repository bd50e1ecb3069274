# What `cpack` makes: an archive to unpack anywhere from the release preset, a Debian package from the
# deb preset, which lays the files out the way Debian wants them.
set(CPACK_PACKAGE_NAME libqormon3)
set(CPACK_PACKAGE_VENDOR "the libqormon3 maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_DESCRIPTION
    "An OS layer, tagged message buffers, IP addresses and ranges, configuration\n\
files, TCP and HTTP clients and an update check in one shared library, with\n\
its headers and the tool qormon.")
set(CPACK_PACKAGE_CONTACT "libqormon3 maintainers <maintainers@libqormon3.example>")
set(CPACK_PACKAGE_FILE_NAME
    libqormon3-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
# Whatever umask the packager has.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_GENERATOR TGZ CACHE STRING "Kinds of package that cpack makes")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A package built with this one depends on this release or a later one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(debian_triggers ${PROJECT_BINARY_DIR}/debian/triggers)
file(CONFIGURE OUTPUT ${debian_triggers} CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${debian_triggers})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
