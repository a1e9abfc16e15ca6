# The NDK's own toolchain file, or a word about where it is looked for.
set(vorn_ndk_toolchain $ENV{ANDROID_NDK_HOME}/build/cmake/android.toolchain.cmake)
if(NOT EXISTS ${vorn_ndk_toolchain})
  message(FATAL_ERROR "The preset android needs the Android NDK (r26 or newer): set ANDROID_NDK_HOME "
    "to its folder, the one with build/cmake/android.toolchain.cmake. It is \"$ENV{ANDROID_NDK_HOME}\" now.")
endif()
include(${vorn_ndk_toolchain})
