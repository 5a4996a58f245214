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

# The Python package is one of its own: not everybody who has the plug-ins has Python.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Unspecified)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME quillworks)
# A summary and what is to be said, which is what a description is in Debian.
file(READ ${CMAKE_SOURCE_DIR}/cmake/package/description CPACK_COMPONENT_UNSPECIFIED_DESCRIPTION)
string(PREPEND CPACK_COMPONENT_UNSPECIFIED_DESCRIPTION
       "pack of 31 audio effects for workstations and the command line\n")
if(TARGET python_native)
  list(APPEND CPACK_COMPONENTS_ALL python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-quillworks)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  file(READ ${CMAKE_SOURCE_DIR}/cmake/package/description.python CPACK_COMPONENT_PYTHON_DESCRIPTION)
  string(PREPEND CPACK_COMPONENT_PYTHON_DESCRIPTION "pack of 31 audio effects on NumPy arrays\n")
  # The compiled part is for one version of Python, and for the module of this very build.
  string(REGEX MATCH "^3\\.([0-9]+)" python ${QUILLWORKS_PYTHON_VERSION})
  math(EXPR next "${CMAKE_MATCH_1} + 1")
  string(JOIN ", " CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
         "quillworks (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})"
         "python3 (>= ${python})" "python3 (<< 3.${next})" python3-numpy)
endif()

# As Debian's policy wants them, compressed without a time of their own.
set(documents ${CMAKE_BINARY_DIR}/documents)
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/package/changelog.in ${documents}/changelog.Debian @ONLY)
configure_file(CHANGELOG.md ${documents}/changelog COPYONLY)
execute_process(COMMAND gzip -9nf changelog.Debian changelog
                WORKING_DIRECTORY ${documents} COMMAND_ERROR_IS_FATAL ANY)
install(FILES cmake/package/copyright ${documents}/changelog.Debian.gz ${documents}/changelog.gz
        DESTINATION share/doc/quillworks)
if(TARGET python_native)
  install(FILES cmake/package/copyright ${documents}/changelog.Debian.gz ${documents}/changelog.gz
          DESTINATION share/doc/python3-quillworks COMPONENT python)
  install(DIRECTORY examples DESTINATION share/doc/python3-quillworks COMPONENT python
          FILES_MATCHING PATTERN "*.py" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
          GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endif()
include(CPack)
