# What makes an installed tree start: run paths, the loader's cache, and a word about the variables
# that a prefix needs. A staged install (DESTDIR) is left to whoever packs it; below /usr, where
# everything is found without, programs lose their run path.
file(RELATIVE_PATH bin_to_lib /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
set(plugin_dir ${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0)

install(CODE "set(VORN_LIBDIR ${CMAKE_INSTALL_LIBDIR})
include(\"${PROJECT_SOURCE_DIR}/cmake/loader_cache.cmake\")" COMPONENT runtime)

if(TARGET vorn-ycnr)
  set_target_properties(vorn-ycnr PROPERTIES INSTALL_RPATH $ORIGIN/${bin_to_lib})
  install(CODE "if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
  file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}/usr/${CMAKE_INSTALL_BINDIR}/vorn-ycnr\")
endif()" COMPONENT tools)
endif()

if(TARGET gstvornycnr)
  set_target_properties(gstvornycnr PROPERTIES INSTALL_RPATH $ORIGIN/..)
  pkg_get_variable(gstreamer_plugins gstreamer-1.0 pluginsdir)
  install(CODE "set(plugins \"\${CMAKE_INSTALL_PREFIX}/${plugin_dir}\")
if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
  file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}\${plugins}/libgstvornycnr.so\")
endif()
if(\"\$ENV{DESTDIR}\" STREQUAL \"\" AND NOT plugins STREQUAL \"${gstreamer_plugins}\")
  message(\"-- GStreamer does not search \${plugins}.\\n\"
    \"   For the element: export GST_PLUGIN_PATH=\${plugins}\")
endif()" COMPONENT gstreamer)
endif()
