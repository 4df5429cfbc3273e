# The warnings that all code of this project compiles clean under.
function(tarnwickhdf_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(TARNWICKHDF_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

include(GenerateExportHeader)

# Writes the library's <name/export.h>, and links it, if it is shared, so that nothing leaves it but the names of
# cmake/exports.map.
function(tarnwickhdf_limit_exports target)
  generate_export_header(${target} EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/include/${target}/export.h)
  if(NOT BUILD_SHARED_LIBS)
    return()
  endif()
  target_link_options(${target} PRIVATE LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
endfunction()
