# The Debian packages, one for each component of the installation.

# Debian wants changes and licence in each package under its own name; a plain install doesn't.
find_program(gzip gzip)
set(changes ${PROJECT_BINARY_DIR}/changelog.gz)
if(gzip)
  execute_process(COMMAND ${gzip} -9nc ${PROJECT_SOURCE_DIR}/cmake/debian-changelog OUTPUT_FILE ${changes})
endif()

# Adds the package of a component: its name and section, what it depends on, its description in a line and what comes
# after the lines that all packages share.
macro(tarnwickhdf_add_package component name section depends summary contents)
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "object model over HDF5 files - ${summary}
Groups, string attributes, arrays, extensible arrays and tables of HDF5 files
as C++ objects. ${contents}")
  install(FILES LICENSE RENAME copyright DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${changes} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

set(runtime_package libtarnwickhdf${PROJECT_VERSION_MAJOR})
tarnwickhdf_add_package(runtime ${runtime_package} libs "" "shared libraries"
  "This package has the libraries that programs run with.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)

tarnwickhdf_add_package(development libtarnwickhdf-dev libdevel
  "${runtime_package} (= ${PROJECT_VERSION}), libhdf5-dev, libboost-dev" "development files"
  "This package has the headers, the CMake
package and the pkg-config file.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS libtarnwickhdf-doc)

tarnwickhdf_add_package(documentation libtarnwickhdf-doc doc "" "documentation"
  "This package has the guide and the other
pages, the reference and the examples.")
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)

if(TARNWICKHDF_BUILD_TOOLS)
  tarnwickhdf_add_package(tools tarnwickhdf-tools science "${runtime_package} (= ${PROJECT_VERSION}), python3" "tools"
    "This package has a program that prints what is
in a file and one that draws memory logs.")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS python3-matplotlib)
endif()

# Packages made of others' programs find out from `shlibs` what they need, and installing makes the libraries known to
# the dynamic linker.
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
  "libtarnwick ${PROJECT_VERSION_MAJOR} ${runtime_package} (>= ${PROJECT_VERSION})\n"
  "libtarnwickhdf ${PROJECT_VERSION_MAJOR} ${runtime_package} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "tarnwickhdf developers")
set(CPACK_PACKAGE_CONTACT "tarnwickhdf developers <tarnwickhdf@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
# Debian's modes, whatever the umask of the one who packs.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/tarnwick ${PROJECT_BINARY_DIR}/tarnwickhdf)
include(CPack)
