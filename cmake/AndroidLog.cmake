# Android's liblog. On Debian it comes from android-liblog-dev, which installs
# the header under /usr/include/android and the library under
# /usr/lib/<multiarch>/android, for amd64 and arm64 alike.
find_package(Threads REQUIRED)
find_path(ANDROID_LOG_INCLUDE_DIR android/log.h PATH_SUFFIXES android REQUIRED)
find_library(ANDROID_LOG_LIBRARY NAMES log
  PATH_SUFFIXES android
  PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
  REQUIRED)
if(NOT TARGET AndroidLog::log)
  add_library(AndroidLog::log UNKNOWN IMPORTED)
  set_target_properties(AndroidLog::log PROPERTIES
    IMPORTED_LOCATION "${ANDROID_LOG_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${ANDROID_LOG_INCLUDE_DIR}")
endif()
