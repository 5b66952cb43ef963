# find_package(velmarmultidimarrayforpython) for native clients. This file is installed in velmar/cmake.
# All paths are relative to it, so that environments can be moved.
#
#   velmar::client            the capsule: <velmar/client.hpp>, and both libraries below
#   velmar::data              the arrays: <velmardata/velmardata.hpp>, libzrfoundation_velmardata.so
#   velmar::data_standalone   the array factory, libzrfoundation_velmardata_standalone.so
#
# A client also needs the headers of Python, from find_package(Python).
get_filename_component(_velmar_package "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
get_filename_component(_velmar_libraries "${_velmar_package}/.." ABSOLUTE)

foreach(_velmar_file IN ITEMS "${_velmar_package}/include/velmar/client.hpp"
                              "${_velmar_package}/include/velmardata/velmardata.hpp"
                              "${_velmar_libraries}/libzrfoundation_velmardata.so"
                              "${_velmar_libraries}/libzrfoundation_velmardata_standalone.so")
  if(NOT EXISTS "${_velmar_file}")
    set(${CMAKE_FIND_PACKAGE_NAME}_FOUND FALSE)
    set(${CMAKE_FIND_PACKAGE_NAME}_NOT_FOUND_MESSAGE
        "${CMAKE_CURRENT_LIST_DIR} is no folder of an installed package: there is no ${_velmar_file}")
    return()
  endif()
endforeach()

if(NOT TARGET velmar::client)
  add_library(velmar::data SHARED IMPORTED)
  set_target_properties(
    velmar::data
    PROPERTIES IMPORTED_LOCATION "${_velmar_libraries}/libzrfoundation_velmardata.so"
               INTERFACE_INCLUDE_DIRECTORIES "${_velmar_package}/include"
               INTERFACE_COMPILE_FEATURES cxx_std_20)

  add_library(velmar::data_standalone SHARED IMPORTED)
  set_target_properties(
    velmar::data_standalone
    PROPERTIES IMPORTED_LOCATION "${_velmar_libraries}/libzrfoundation_velmardata_standalone.so"
               INTERFACE_LINK_LIBRARIES velmar::data)

  add_library(velmar::client INTERFACE IMPORTED)
  set_target_properties(velmar::client PROPERTIES INTERFACE_LINK_LIBRARIES
                                                  "velmar::data;velmar::data_standalone")
endif()

unset(_velmar_file)
unset(_velmar_libraries)
unset(_velmar_package)
