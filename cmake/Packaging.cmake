# cpack makes a Debian package of the component Program, and an archive that runs wherever it is unpacked. The same
# programs give the same bytes: SOURCE_DATE_EPOCH is the time of all files, or else the time of the last commit.
set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME corvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Corvane maintainers <maintainers@corvane.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "prepares, recompresses, signs and proves Mac installer packages")
set(CPACK_PACKAGE_DESCRIPTION "Administrators who hand Mac software to device management turn disk images into
packages, rebuild bloated ones with a proof that nothing else changed, and sign them.
This package brings portable tools for that, so that no Mac is needed.")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Program)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianSize.cmake)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_ARCHIVE_FILE_NAME corvane-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})

# Notices of the libraries whose code is in the programs, as their Debian packages have them.
if(NOT APPLE)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libstdc++.a
    OUTPUT_VARIABLE standardLibrary OUTPUT_STRIP_TRAILING_WHITESPACE)
  file(REAL_PATH ${standardLibrary} standardLibrary)
  get_property(archives GLOBAL PROPERTY CORVANE_LINKED_ARCHIVES)
  get_target_property(jsonHeaders nlohmann_json::nlohmann_json INTERFACE_INCLUDE_DIRECTORIES)
  set(owners)
  foreach(file IN LISTS archives ITEMS ${standardLibrary} ${jsonHeaders}/nlohmann/json.hpp)
    execute_process(COMMAND dpkg-query -S ${file} OUTPUT_VARIABLE owner ERROR_QUIET)
    string(REGEX REPLACE ":.*" "" owner "${owner}")
    list(APPEND owners ${owner})
  endforeach()
  list(REMOVE_DUPLICATES owners)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/corvane)
  foreach(owner IN LISTS owners)
    install(FILES /usr/share/doc/${owner}/copyright RENAME ${owner} DESTINATION ${documents}/notices COMPONENT Program OPTIONAL)
  endforeach()
  file(WRITE ${PROJECT_BINARY_DIR}/copyright "Corvane\n\nThe programs contain code of other libraries, whose notices are in "
    "the folder notices, each under the name of the Debian package that it comes from.\n")
  install(FILES ${PROJECT_BINARY_DIR}/copyright DESTINATION ${documents} COMPONENT Program)
endif()

file(WRITE ${PROJECT_BINARY_DIR}/PackagingTime.cmake [[
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND git -C "${CPACK_CORVANE_SOURCE}" log -1 --format=%ct
    OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  # Without a history, in an unpacked archive of the source, files keep their own times.
  if(time)
    set(ENV{SOURCE_DATE_EPOCH} ${time})
  endif()
endif()
]])
set(CPACK_CORVANE_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/PackagingTime.cmake)
include(CPack)
