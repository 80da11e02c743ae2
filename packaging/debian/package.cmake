# The Debian package, and that of its debug symbols.

include(${CMAKE_CURRENT_LIST_DIR}/version.cmake)
execute_process(
    COMMAND date --utc --rfc-email "--date=${KESTAN_RELEASE_DATE} 12:00"
    OUTPUT_VARIABLE KESTAN_RELEASE_TIME OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
foreach(file changelog.Debian postinst prerm postrm)
    configure_file(debian/${file}.in debian/${file} @ONLY)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestan)
string(REGEX REPLACE "-[^-]*$" "" CPACK_PACKAGE_VERSION ${KESTAN_PACKAGE_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_DESCRIPTION
"Kestan takes the tables of a DVB multiplex (PAT, CAT, SDT, PMTs) from a
control process and plays them, together with a TDT, as one paced stream
of UDP datagrams. With it come kestan-control, a control process in one
command, kestan-insert, which puts the tables into an encoder's stream, and
kestan-monitor, which shows what is on the wire and checks it.")
set(CPACK_PACKAGE_CONTACT ${KESTAN_MAINTAINER})
# The files of the package contain the prefix, so the package is installed with the same one.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${KESTAN_PACKAGE_REVISION})
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)  # strips the programs of the first package
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "nftables, systemd")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${out}/debian/postinst ${out}/debian/prerm ${out}/debian/postrm)

# For the two scripts, which cpack runs.
set(CPACK_KESTAN_CROSS ${CMAKE_CROSSCOMPILING})
set(CPACK_KESTAN_EPOCH $ENV{SOURCE_DATE_EPOCH})
set(CPACK_KESTAN_CHANGELOG ${out}/debian/changelog.Debian)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_SOURCE_DIR}/debian/cpack_setup.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/cpack_documents.cmake)
include(CPack)
