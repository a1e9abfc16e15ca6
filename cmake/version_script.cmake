# vorn_version_script(LIBRARY FILE): links with a version script of the current source folder. It is
# named as seen from where the linker runs, since CMake does not escape a "$" of a full path there.
function(vorn_version_script library file)
  set(copy ${CMAKE_CURRENT_BINARY_DIR}/${library}.map)
  configure_file(${file} ${copy} COPYONLY)
  if(CMAKE_GENERATOR MATCHES "Makefiles")
    set(from ${CMAKE_CURRENT_BINARY_DIR})
  else()
    set(from ${CMAKE_BINARY_DIR})
  endif()
  file(RELATIVE_PATH seen ${from} ${copy})
  target_link_options(${library} PRIVATE -Wl,--version-script=${seen})
  set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${copy})
endfunction()
