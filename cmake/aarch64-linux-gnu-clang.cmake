# As aarch64-linux-gnu.cmake with clang, as phones are built. VORN_CLANG in the environment names
# another version's suffix, "-16".
include(${CMAKE_CURRENT_LIST_DIR}/aarch64-linux-gnu.cmake)
set(suffix -14)
if(DEFINED ENV{VORN_CLANG})
  set(suffix $ENV{VORN_CLANG})
endif()
set(CMAKE_C_COMPILER clang${suffix})
set(CMAKE_CXX_COMPILER clang++${suffix})
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
