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
string(REPLACE ";" " " hdf5_libraries "${tarnwickhdf_hdf5_libraries}")
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

set(runtime_package libtarnwickhdf${PROJECT_VERSION_MAJOR})
set(development_package libtarnwickhdf-dev)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development FILES_MATCHING
  PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png")

# Debian wants licence and changes under each package's own name; a plain install doesn't.
find_program(gzip gzip)
set(changes ${PROJECT_BINARY_DIR}/changelog.gz)
if(gzip)
  execute_process(COMMAND ${gzip} -9nc ${PROJECT_SOURCE_DIR}/cmake/debian-changelog OUTPUT_FILE ${changes})
endif()
foreach(component runtime development)
  set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${${component}_package})
  install(FILES LICENSE RENAME copyright DESTINATION ${folder} COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${changes} DESTINATION ${folder} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

# Packages made of others' programs find out from `shlibs` what they need, and installing makes the libraries known to
# the dynamic linker.
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
  "libtarnwick ${PROJECT_VERSION_MAJOR} ${runtime_package} (>= ${PROJECT_VERSION})\n"
  "libtarnwickhdf ${PROJECT_VERSION_MAJOR} ${runtime_package} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "tarnwickhdf developers")
set(CPACK_PACKAGE_CONTACT "tarnwickhdf developers <tarnwickhdf@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_STRIP_FILES ON)
# Debian's modes, whatever the umask of the one who packs.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/tarnwick)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "object model over HDF5 files - shared libraries
Groups, string attributes, arrays, extensible arrays and tables of HDF5 files
as C++ objects. This package has the libraries that programs run with.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${runtime_package} (= ${PROJECT_VERSION}), libhdf5-dev, libboost-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "object model over HDF5 files - development files
Groups, string attributes, arrays, extensible arrays and tables of HDF5 files
as C++ objects. This package has the headers, the CMake package and the
pkg-config file.")
# The packages of a project that takes this one in as a subfolder are its own.
if(top_level)
  include(CPack)
endif()
