# What others need to build on the core library: installed as the component Development. The headers are found below
# corvane/, in the build tree as well as in an installation; they include each other relative to themselves, so that the
# installed ones are the same files and no folder named like a room comes onto anybody's include path.
include(CMakePackageConfigHelpers)

set(publicHeaders
  Models/CorvaneVersion.hpp Models/PipelineModels.hpp Models/SigningIdentity.hpp
  Services/IdentityLocator.hpp Services/LaunchError.hpp Services/PackageComponentCatalog.hpp
  Services/PackageComponentDescriptor.hpp Services/PackagingPipeline.hpp Services/PackagingPipeline/Gates.hpp
  Services/SystemTool.hpp
  Stores/JobStore.hpp Stores/MainExecutor.hpp Stores/Observation.hpp Stores/Preferences.hpp
  Support/AsyncStream.hpp Support/CancellationError.hpp Support/FileError.hpp Support/FileURL.hpp Support/Task.hpp)

set(includeFolder ${PROJECT_BINARY_DIR}/include)
file(MAKE_DIRECTORY ${includeFolder}/corvane)
foreach(room Models Services Stores Support)
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${room} ${includeFolder}/corvane/${room} SYMBOLIC)
endforeach()
list(TRANSFORM publicHeaders PREPEND ${includeFolder}/corvane/)
target_sources(CorvaneKit PUBLIC FILE_SET HEADERS BASE_DIRS ${includeFolder} FILES ${publicHeaders})
add_library(Corvane::CorvaneKit ALIAS CorvaneKit)

install(TARGETS CorvaneKit CorvaneSupport EXPORT Corvane
  ARCHIVE COMPONENT Development
  FILE_SET HEADERS COMPONENT Development)

set(CORVANE_TOOLS_FOLDER libexec/corvane)
set(packageFolder ${CMAKE_INSTALL_LIBDIR}/cmake/Corvane)
configure_package_config_file(cmake/CorvaneConfig.cmake.in ${PROJECT_BINARY_DIR}/CorvaneConfig.cmake
  INSTALL_DESTINATION ${packageFolder} PATH_VARS CORVANE_TOOLS_FOLDER)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CorvaneConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(EXPORT Corvane NAMESPACE Corvane:: FILE CorvaneTargets.cmake DESTINATION ${packageFolder} COMPONENT Development)
install(FILES ${PROJECT_BINARY_DIR}/CorvaneConfig.cmake ${PROJECT_BINARY_DIR}/CorvaneConfigVersion.cmake
  DESTINATION ${packageFolder} COMPONENT Development)

# The prefix is written as the way to it from the file's own folder: the installed tree may be moved.
set(pkgConfigFolder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${pkgConfigFolder}
  OUTPUT_VARIABLE prefixOfPkgConfig)
set(requiredModules "libxml-2.0 libutf8proc")
if(NOT APPLE)
  string(APPEND requiredModules " uuid")
endif()
configure_file(cmake/corvane.pc.in ${PROJECT_BINARY_DIR}/corvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/corvane.pc DESTINATION ${pkgConfigFolder} COMPONENT Development)
