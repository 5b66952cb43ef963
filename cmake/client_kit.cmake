# Installs the files that native clients compile against, in the Python package velmar: the headers
# of the data library that this build uses (velmar/include/velmardata) and the files for find_package
# (velmar/cmake). The headers of the capsule are part of the package.
include(CMakePackageConfigHelpers)

get_target_property(velmardata_headers zrfoundation_velmardata INTERFACE_INCLUDE_DIRECTORIES)
install(DIRECTORY "${velmardata_headers}/velmardata" DESTINATION velmar/include)

set(version_file "${PROJECT_BINARY_DIR}/${PROJECT_NAME}ConfigVersion.cmake")
write_basic_package_version_file("${version_file}" COMPATIBILITY SameMinorVersion)
install(FILES "${version_file}" "${CMAKE_CURRENT_LIST_DIR}/${PROJECT_NAME}Config.cmake"
        DESTINATION velmar/cmake)
