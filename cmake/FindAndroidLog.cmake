# Finds the Android log library. Debian's android-liblog-dev has the headers and the library in folders of their own.
# Defines the imported target Android::log.
include(FindPackageHandleStandardArgs)

find_path(AndroidLog_INCLUDE_DIR android/log.h PATH_SUFFIXES android)
find_library(AndroidLog_LIBRARY log PATH_SUFFIXES android ${CMAKE_LIBRARY_ARCHITECTURE}/android)
find_package_handle_standard_args(
  AndroidLog
  REQUIRED_VARS AndroidLog_LIBRARY AndroidLog_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "Debian package android-liblog-dev")
mark_as_advanced(AndroidLog_INCLUDE_DIR AndroidLog_LIBRARY)

if(AndroidLog_FOUND AND NOT TARGET Android::log)
  add_library(Android::log UNKNOWN IMPORTED)
  set_target_properties(
    Android::log PROPERTIES IMPORTED_LOCATION "${AndroidLog_LIBRARY}"
                            INTERFACE_INCLUDE_DIRECTORIES "${AndroidLog_INCLUDE_DIR}")
endif()
