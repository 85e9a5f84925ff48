# Finds hidapi by its header and library: Debian's packages come without a CMake configuration, and
# name the library after its backend. Defines the target hidapi::hidapi.
find_path(hidapi_INCLUDE_DIR NAMES hidapi.h PATH_SUFFIXES hidapi)
find_library(hidapi_LIBRARY NAMES hidapi hidapi-hidraw hidapi-libusb)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(hidapi REQUIRED_VARS hidapi_LIBRARY hidapi_INCLUDE_DIR)

if(hidapi_FOUND AND NOT TARGET hidapi::hidapi)
  add_library(hidapi::hidapi UNKNOWN IMPORTED)
  set_target_properties(hidapi::hidapi PROPERTIES
    IMPORTED_LOCATION "${hidapi_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${hidapi_INCLUDE_DIR}")
endif()
mark_as_advanced(hidapi_INCLUDE_DIR hidapi_LIBRARY)
