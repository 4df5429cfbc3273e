# Finds what the public headers include, HDF5 and Boost: for the build, and for programs that use the installed package.
# The result is imported targets of our own, tarnwickhdf::hdf5 and tarnwickhdf::boost, since those of others may not be
# known outside the folder that looked for them. If anything is missing, tarnwickhdf_problem says what.
cmake_policy(VERSION 3.18...3.31)
unset(tarnwickhdf_problem)

# The installed package names the HDF5 that the library was built with: no other may come into the same process.
if(tarnwickhdf_hdf5_libraries)
  list(GET tarnwickhdf_hdf5_libraries 0 tarnwickhdf_hdf5_library)
  if(NOT EXISTS "${tarnwickhdf_hdf5_library}")
    unset(tarnwickhdf_hdf5_libraries)
  endif()
endif()

# HDF5's own package comes first: CMake's module doesn't understand that of HDF5 2. It calls itself incompatible with
# every other minor release, so no version is asked for.
if(NOT tarnwickhdf_hdf5_libraries)
  find_package(HDF5 CONFIG QUIET COMPONENTS C shared)
  foreach(tarnwickhdf_target hdf5-shared hdf5::hdf5-shared)
    if(HDF5_FOUND AND TARGET ${tarnwickhdf_target})
      get_target_property(tarnwickhdf_hdf5_libraries ${tarnwickhdf_target} LOCATION)
      set(tarnwickhdf_hdf5_include_dirs ${HDF5_INCLUDE_DIR})
    endif()
  endforeach()
  # The name without a version lives through updates of HDF5.
  string(REGEX REPLACE "\\.so\\.[0-9.]+$" ".so" tarnwickhdf_hdf5_library "${tarnwickhdf_hdf5_libraries}")
  if(EXISTS "${tarnwickhdf_hdf5_library}")
    set(tarnwickhdf_hdf5_libraries ${tarnwickhdf_hdf5_library})
  endif()
endif()

if(NOT tarnwickhdf_hdf5_libraries)
  # The module runs the C compiler, which a C++ project may not have asked for.
  if(NOT CMAKE_C_COMPILER_LOADED)
    enable_language(C)
  endif()
  find_package(HDF5 MODULE QUIET COMPONENTS C)
  set(tarnwickhdf_hdf5_libraries ${HDF5_C_LIBRARIES})
  set(tarnwickhdf_hdf5_include_dirs ${HDF5_C_INCLUDE_DIRS})
  # A shared HDF5 brings what it needs itself.
  set(tarnwickhdf_hdf5_library ${HDF5_C_LIBRARIES})
  list(FILTER tarnwickhdf_hdf5_library INCLUDE REGEX "/libhdf5[^/]*\\.so$")
  if(tarnwickhdf_hdf5_library)
    set(tarnwickhdf_hdf5_libraries ${tarnwickhdf_hdf5_library})
  endif()
endif()

if(NOT tarnwickhdf_hdf5_libraries)
  set(tarnwickhdf_problem "HDF5 wasn't found (HDF5_ROOT may name its folder, HDF5_DIR that of its CMake package)")
elseif(HDF5_VERSION AND HDF5_VERSION VERSION_LESS 1.10)
  set(tarnwickhdf_problem "HDF5 1.10 or later is needed, ${tarnwickhdf_hdf5_libraries} is ${HDF5_VERSION}")
endif()

# How HDF5 was configured stands in a header, on some systems in one of each word size.
unset(tarnwickhdf_hdf5_features)
foreach(tarnwickhdf_folder ${tarnwickhdf_hdf5_include_dirs})
  file(GLOB tarnwickhdf_headers "${tarnwickhdf_folder}/H5pubconf*.h")
  foreach(tarnwickhdf_header ${tarnwickhdf_headers})
    file(STRINGS ${tarnwickhdf_header} tarnwickhdf_defines REGEX "^#[ \t]*define[ \t]+H5_[A-Z_]+[ \t]+1")
    list(APPEND tarnwickhdf_hdf5_features ${tarnwickhdf_defines})
  endforeach()
endforeach()
if(tarnwickhdf_hdf5_features MATCHES "H5_NO_DEPRECATED_SYMBOLS")
  set(tarnwickhdf_problem "HDF5 was built without its deprecated symbols, which are needed: ${tarnwickhdf_hdf5_libraries}")
endif()
if(tarnwickhdf_hdf5_features MATCHES "H5_HAVE_PARALLEL")
  if(NOT CMAKE_C_COMPILER_LOADED)
    enable_language(C)
  endif()
  find_package(MPI QUIET COMPONENTS C)
  list(APPEND tarnwickhdf_hdf5_include_dirs ${MPI_C_INCLUDE_DIRS})
  if(NOT MPI_C_FOUND)
    set(tarnwickhdf_problem "HDF5's headers include those of MPI, which weren't found: ${tarnwickhdf_hdf5_libraries}")
  endif()
endif()

find_package(Boost 1.60 QUIET)
if(NOT Boost_FOUND)
  set(tarnwickhdf_problem "Boost 1.60 or later wasn't found (its headers alone are needed)")
endif()

if(NOT tarnwickhdf_problem AND NOT TARGET tarnwickhdf::hdf5)
  add_library(tarnwickhdf::hdf5 INTERFACE IMPORTED GLOBAL)
  target_include_directories(tarnwickhdf::hdf5 INTERFACE ${tarnwickhdf_hdf5_include_dirs})
  target_link_libraries(tarnwickhdf::hdf5 INTERFACE ${tarnwickhdf_hdf5_libraries})
  add_library(tarnwickhdf::boost INTERFACE IMPORTED GLOBAL)
  target_include_directories(tarnwickhdf::boost INTERFACE ${Boost_INCLUDE_DIRS})
endif()
