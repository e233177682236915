# Debian ships the real AOSP liblog and libutils (Android 10) for the host:
# headers under /usr/include/android, libraries under /usr/lib/<triplet>/android.
set(_android_libdir /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)

find_path(ANDROID_PLATFORM_INCLUDE_DIR NAMES android/log.h utils/RefBase.h
  PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
find_library(ANDROID_LIBLOG log PATHS ${_android_libdir} NO_DEFAULT_PATH REQUIRED)
find_library(ANDROID_LIBUTILS utils PATHS ${_android_libdir} NO_DEFAULT_PATH REQUIRED)

foreach(_lib log utils)
  string(TOUPPER ${_lib} _upper)
  add_library(android::${_lib} SHARED IMPORTED GLOBAL)
  set_target_properties(android::${_lib} PROPERTIES
    IMPORTED_LOCATION ${ANDROID_LIB${_upper}}
    INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${ANDROID_PLATFORM_INCLUDE_DIR}
    INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_PLATFORM_INCLUDE_DIR}
    # The libraries are not on the loader's default path.
    INTERFACE_LINK_OPTIONS "-Wl,-rpath,${_android_libdir}")
endforeach()
