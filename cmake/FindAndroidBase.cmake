# Finds the Android base library (system properties), in Debian the package android-libbase-dev.
# Defines the imported target Android::base.
include(FindPackageHandleStandardArgs)

find_path(AndroidBase_INCLUDE_DIR android-base/properties.h PATH_SUFFIXES android)
find_library(AndroidBase_LIBRARY base PATH_SUFFIXES android ${CMAKE_LIBRARY_ARCHITECTURE}/android)
find_package_handle_standard_args(
  AndroidBase
  REQUIRED_VARS AndroidBase_LIBRARY AndroidBase_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "Debian package android-libbase-dev")
mark_as_advanced(AndroidBase_INCLUDE_DIR AndroidBase_LIBRARY)

if(AndroidBase_FOUND AND NOT TARGET Android::base)
  add_library(Android::base UNKNOWN IMPORTED)
  set_target_properties(
    Android::base PROPERTIES IMPORTED_LOCATION "${AndroidBase_LIBRARY}"
                             INTERFACE_INCLUDE_DIRECTORIES "${AndroidBase_INCLUDE_DIR}")
endif()
