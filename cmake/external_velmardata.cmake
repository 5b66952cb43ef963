# Links another implementation of the data libraries: the two .so of VELMARDATA_EXTERNAL_DIR under
# the target names that velmardata/CMakeLists.txt would define. Its headers are those of an include
# folder beside the two files, and ours if there is none.
#
# The files are copied into the build's folder of libraries, where the module looks for them as it
# does once installed. They have to find each other by themselves.
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
