# Where `cmake --install` puts things, relative to the prefix, and how programs and libraries find
# each other there. On Windows everything that runs is in one folder, as the system expects. On
# other systems the plug-in and the stand-ins have a folder that the dynamic linker does not search,
# because the names of the stand-ins are those of other libraries.
include(GNUInstallDirs)
if(WIN32)
  set(KORU_INSTALL_PLUGIN ${CMAKE_INSTALL_BINDIR})
  set(KORU_INSTALL_DOCUMENTS doc)
else()
  set(KORU_INSTALL_PLUGIN ${CMAKE_INSTALL_LIBDIR}/qmxcam-korurtsp)
  set(KORU_INSTALL_DOCUMENTS ${CMAKE_INSTALL_DATADIR}/doc/qmxcam-korurtsp)
endif()
# The folder of the plug-in, relative to that of the programs.
file(RELATIVE_PATH KORU_PLUGIN_FROM_PROGRAM
  /${CMAKE_INSTALL_BINDIR} /${KORU_INSTALL_PLUGIN})
