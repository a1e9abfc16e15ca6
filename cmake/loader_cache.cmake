# Run by `cmake --install` after the library was copied: the loader knows the libraries of its folders
# from a cache, which only root can renew; other folders it has to be told.
if(NOT "$ENV{DESTDIR}" STREQUAL "" OR NOT CMAKE_HOST_SYSTEM_NAME STREQUAL "Linux")
  return()
endif()
set(folder "${CMAKE_INSTALL_PREFIX}/${VORN_LIBDIR}")
find_program(VORN_LDCONFIG ldconfig PATHS /sbin /usr/sbin)
set(searched "")
if(VORN_LDCONFIG)
  # -N -X only lists the folders.
  execute_process(COMMAND ${VORN_LDCONFIG} -N -X -v OUTPUT_VARIABLE searched ERROR_QUIET)
endif()
string(FIND "\n${searched}" "\n${folder}:" found)
if(found EQUAL -1)
  message("-- The loader does not search ${folder}.\n"
    "   For programs that link the library: export LD_LIBRARY_PATH=${folder}")
else()
  execute_process(COMMAND ${VORN_LDCONFIG} RESULT_VARIABLE result OUTPUT_QUIET ERROR_QUIET)
  if(result EQUAL 0)
    message("-- Renewed the loader's cache")
  else()
    message("-- The loader's cache could not be renewed. As root: ldconfig")
  endif()
endif()
