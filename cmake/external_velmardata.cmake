# Links another implementation of the data libraries: defines the targets of
# velmardata/CMakeLists.txt for the two .so files in VELMARDATA_EXTERNAL_DIR. Its headers are in the
# subfolder include; without that folder, the headers of this project are used.
#
# The files are copied to the build's library folder, where the module searches for them. They need
# their own search path to find each other.
set(velmardata_include "${VELMARDATA_EXTERNAL_DIR}/include")
if(NOT EXISTS "${velmardata_include}/velmardata/velmardata.hpp")
  set(velmardata_include "${PROJECT_SOURCE_DIR}/velmardata/include")
endif()

foreach(name IN ITEMS zrfoundation_velmardata zrfoundation_velmardata_standalone)
  set(given "${VELMARDATA_EXTERNAL_DIR}/lib${name}.so")
  if(NOT EXISTS "${given}")
    message(FATAL_ERROR "VELMARDATA_EXTERNAL_DIR is set, but there is no ${given}")
  endif()
  set(copy "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/lib${name}.so")
  configure_file("${given}" "${copy}" COPYONLY)
  add_library(${name} SHARED IMPORTED GLOBAL)
  set_target_properties(
    ${name} PROPERTIES IMPORTED_LOCATION "${copy}" INTERFACE_INCLUDE_DIRECTORIES
                                                   "${velmardata_include}")
endforeach()
set_property(TARGET zrfoundation_velmardata_standalone PROPERTY INTERFACE_LINK_LIBRARIES
                                                                zrfoundation_velmardata)
