# What `cmake --install` puts in place, and the Debian packages made of it.
include(CMakePackageConfigHelpers)

function(tarnwickhdf_install_library target)
  install(TARGETS ${target} EXPORT tarnwickhdfTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${target}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${target}
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
  DESTINATION ${package_dir} COMPONENT development)

# pkg-config's own module for HDF5 is named differently from one distribution to the next: say where it was found.
list(GET HDF5_C_LIBRARIES 0 hdf5_library)
get_filename_component(hdf5_library_dir ${hdf5_library} DIRECTORY)
list(GET HDF5_C_INCLUDE_DIRS 0 hdf5_include_dir)
configure_file(cmake/tarnwickhdf.pc.in ${PROJECT_BINARY_DIR}/tarnwickhdf.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarnwickhdf.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "tarnwickhdf developers")
set(CPACK_PACKAGE_CONTACT "tarnwickhdf developers <tarnwickhdf@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtarnwickhdf${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Object model over HDF5 files - shared libraries")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtarnwickhdf-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libtarnwickhdf${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}), libhdf5-dev, libboost-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Object model over HDF5 files - headers, CMake package and pkg-config file")
include(CPack)
