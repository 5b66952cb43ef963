# Functions for the targets of src and tests/native.

# add_room(<folder> <source>...): adds the object library <folder>_objects for one folder of src. The
# first room precompiles the headers outside the project that nearly every source includes.
function(add_room folder)
  add_library(${folder}_objects OBJECT ${ARGN})
  target_link_libraries(
    ${folder}_objects PUBLIC build_flags python_limited_api zrfoundation_velmardata
                             zrfoundation_velmardata_standalone)
  if(CMAKE_DISABLE_PRECOMPILE_HEADERS)
    return()
  endif()
  if(folder STREQUAL module)
    target_precompile_headers(
      ${folder}_objects
      PRIVATE
      "${PROJECT_SOURCE_DIR}/src/module/python.hpp"
      <algorithm>
      <complex>
      <memory>
      <optional>
      <span>
      <string>
      <vector>
      <velmardata/velmardata.hpp>)
  else()
    target_precompile_headers(${folder}_objects REUSE_FROM module_objects)
  endif()
endfunction()

# add_abi3_module(<target> <exports> <source>...): adds a loadable <target>.abi3.so that exports only
# the names of the linker script <exports>. Hidden visibility alone still exports weak symbols of the
# standard library's templates.
function(add_abi3_module target exports)
  add_library(${target} MODULE ${ARGN})
  set_target_properties(${target} PROPERTIES PREFIX "" SUFFIX ".abi3.so" LINK_DEPENDS "${exports}")
  target_link_options(${target} PRIVATE "LINKER:--version-script=${exports}")
  target_link_libraries(
    ${target} PRIVATE build_flags python_limited_api zrfoundation_velmardata
                      zrfoundation_velmardata_standalone)
endfunction()

# install_in_wheel(<target>...): installs libraries at the top level of the wheel.
function(install_in_wheel)
  foreach(target IN LISTS ARGN)
    get_target_property(imported ${target} IMPORTED)
    if(imported)
      install(IMPORTED_RUNTIME_ARTIFACTS ${target} LIBRARY DESTINATION .)
    else()
      install(TARGETS ${target} LIBRARY DESTINATION .)
    endif()
  endforeach()
endfunction()
