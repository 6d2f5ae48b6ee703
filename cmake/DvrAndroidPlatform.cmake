# Imported targets for the Android platform libraries that Debian ships under
# the android/ subdirectories (liblog, libutils). Shared by the build and by the
# installed package config, so clients resolve the same libraries.
if(NOT TARGET android::log)
  find_path(DVR_ANDROID_INCLUDE_DIR log/log.h PATH_SUFFIXES android REQUIRED)
  find_library(DVR_ANDROID_LOG_LIBRARY log PATH_SUFFIXES android REQUIRED)
  find_library(DVR_ANDROID_UTILS_LIBRARY utils PATH_SUFFIXES android REQUIRED)
  add_library(android::log SHARED IMPORTED)
  set_target_properties(android::log PROPERTIES
    IMPORTED_LOCATION "${DVR_ANDROID_LOG_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${DVR_ANDROID_INCLUDE_DIR}")
  add_library(android::utils SHARED IMPORTED)
  set_target_properties(android::utils PROPERTIES
    IMPORTED_LOCATION "${DVR_ANDROID_UTILS_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${DVR_ANDROID_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES android::log)
endif()
