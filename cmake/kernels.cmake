# vorn_kernels(NAME): adds kernels/NAME_<form>.cpp to the library, the plain form and those that this
# architecture has. Forms beyond its baseline are compiled for the machines that they are chosen on;
# the sources take no other switch than the compiler's own __x86_64__ and __aarch64__.
function(vorn_kernels name)
  set(forms scalar neon)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)")
    set(flags_neon_dot -march=armv8.2-a+dotprod)
    list(APPEND forms neon_dot)
  else()
    # Through SIMDe, whose plain loops ask for vectorisation; clang reports where it declines.
    set(flags_neon $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>)
    # Under sanitizers GCC took 345 s for one of these files, and with these 60 s.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_FLAGS MATCHES "-fsanitize=")
      list(APPEND flags_neon -O1 -fno-tree-pta -fno-var-tracking)
    endif()
  endif()
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    set(flags_avx2 -mavx2 -mfma)
    # GCC 12 takes the undefined operands in its own AVX-512 headers for uninitialised variables.
    set(flags_avx512 -mavx512f -mavx512bw -mavx512vl -mavx512vbmi -mavx512vnni
        -mprefer-vector-width=512
        $<$<CXX_COMPILER_ID:GNU>:-Wno-uninitialized> $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    list(APPEND forms sse2 avx2 avx512)
  endif()
  foreach(form IN LISTS forms)
    set(source ${CMAKE_CURRENT_SOURCE_DIR}/kernels/${name}_${form}.cpp)
    if(form STREQUAL neon_dot AND NOT EXISTS ${source})
      continue()  # the table of neon serves
    endif()
    target_sources(vorn_objects PRIVATE ${source})
    if(flags_${form})
      set_source_files_properties(${source} TARGET_DIRECTORY vorn_objects
        PROPERTIES COMPILE_OPTIONS "${flags_${form}}")
    endif()
  endforeach()
endfunction()
