# What distributions compile and link with so that a fault ends a program instead of being used by
# somebody: canaries on stacks with arrays, checked C calls, marked jump targets and signed return
# addresses where the processor knows them, tables that are read-only once a program runs.
option(VORN_HARDENING "Compile and link with the hardening options of distributions" ON)
add_library(vorn_hardening INTERFACE)
if(NOT VORN_HARDENING)
  return()
endif()
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

function(vorn_harden flag)
  string(MAKE_C_IDENTIFIER "HAVE${flag}" have)
  check_cxx_compiler_flag("-Werror ${flag}" ${have})
  if(${have})
    target_compile_options(vorn_hardening INTERFACE ${flag})
  endif()
endfunction()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  vorn_harden(-mbranch-protection=standard)
else()
  vorn_harden(-fcf-protection)
endif()
# Android's own builds bring canaries and checked calls for everything; sanitizers check more.
if(NOT ANDROID)
  vorn_harden(-fstack-protector-strong)
  vorn_harden(-fstack-clash-protection)
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    # The checks need the optimiser.
    target_compile_options(vorn_hardening INTERFACE
      $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
  endif()
endif()
target_link_options(vorn_hardening INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
