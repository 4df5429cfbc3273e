# What `cmake --install` puts in place, and the Debian packages made of it.
include(CMakePackageConfigHelpers)

function(tarnwickhdf_install_library target)
  install(TARGETS ${target} EXPORT tarnwickhdfTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${target}/ ${PROJECT_BINARY_DIR}/include/${target}/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${target}
    COMPONENT development
    FILES_MATCHING PATTERN "*.h"
    PATTERN internal EXCLUDE)
endfunction()

tarnwickhdf_install_library(tarnwick)
tarnwickhdf_install_library(tarnwickhdf)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarnwickhdf)
install(EXPORT tarnwickhdfTargets NAMESPACE tarnwickhdf:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(cmake/tarnwickhdfConfig.cmake.in ${PROJECT_BINARY_DIR}/tarnwickhdfConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tarnwickhdfConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarnwickhdfConfig.cmake ${PROJECT_BINARY_DIR}/tarnwickhdfConfigVersion.cmake
  cmake/tarnwickhdfDependencies.cmake
  DESTINATION ${package_dir} COMPONENT development)

# pkg-config's own module for HDF5 is named differently from one distribution to the next, and where several flavours
# are installed it may be another one: name the file that the library is linked with.
set(hdf5_libraries ${tarnwickhdf_hdf5_libraries})
# What a static library is made with, its programs need too.
if(NOT BUILD_SHARED_LIBS)
  list(APPEND hdf5_libraries ${tarnwickhdf_deflate_library})
endif()
list(JOIN hdf5_libraries " " hdf5_libraries)
set(include_dirs ${tarnwickhdf_hdf5_include_dirs} ${Boost_INCLUDE_DIRS})
list(REMOVE_ITEM include_dirs ${CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES})
list(TRANSFORM include_dirs PREPEND -I)
list(JOIN include_dirs " " include_dirs)
# The prefix is told relative to the file, so that a tree that was moved or unpacked elsewhere works too.
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig ${prefix_from_pkgconfig})
configure_file(cmake/tarnwickhdf.pc.in ${PROJECT_BINARY_DIR}/tarnwickhdf.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarnwickhdf.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png")
# Each program is compiled by itself, as the project in `consumer` is.
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
  REGEX "examples/(many-machines/)?CMakeLists.txt$" EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
  OPTIONAL)

# The packages of a project that takes this one in as a subfolder are its own.
if(top_level)
  include(cmake/Packages.cmake)
endif()
