# SPDX-License-Identifier: ISC
# The Debian package that ./package builds: everything but tests, in the places of the system.
option(QUILLWORKS_PACKAGE "Install what a Debian package holds beside the programs" OFF)
if(NOT QUILLWORKS_PACKAGE)
  install(FILES LICENSE CHANGELOG.md DESTINATION share/doc/quillworks)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillworks)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Quillworks Audio <packages@quillworks.example>")
set(CPACK_PACKAGE_DESCRIPTION_FILE ${CMAKE_SOURCE_DIR}/cmake/package/description)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "pack of 31 audio effects for workstations and the command line")
set(CPACK_DEBIAN_PACKAGE_RELEASE 0quillworks1)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://quillworks.example)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/vnk)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

# As Debian's policy wants them, compressed without a time of their own.
set(documents ${CMAKE_BINARY_DIR}/documents)
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/package/changelog.in ${documents}/changelog.Debian @ONLY)
configure_file(CHANGELOG.md ${documents}/changelog COPYONLY)
configure_file(docs/man/quillhost.1 ${documents}/quillhost.1 COPYONLY)
execute_process(COMMAND gzip -9nf changelog.Debian changelog quillhost.1
                WORKING_DIRECTORY ${documents} COMMAND_ERROR_IS_FATAL ANY)
install(FILES cmake/package/copyright ${documents}/changelog.Debian.gz ${documents}/changelog.gz
        DESTINATION share/doc/quillworks)
install(FILES ${documents}/quillhost.1.gz DESTINATION share/man/man1)
include(CPack)
