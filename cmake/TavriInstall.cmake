# What an install puts where. One install() per shipped target, so that a renamed or
# added target changes one line here. Included at the end of the top level, once every
# target exists.
#
# Every rule names the component, and so the Debian package, its files go to
# (cmake/TavriPackaging.cmake):
#   runtime  the host libraries, the plug-in, the image codec module and the rig files
#   dev      headers, the libraries' link names, the CMake package and the pkg-config file
#   tool     teli-grab with its man page and bash completion
#   python   the Python module tavri_teli (python/CMakeLists.txt)
# On Debian the libraries go to the multiarch folder (lib/x86_64-linux-gnu) under any
# prefix, as Debian's own packages have them: GNUInstallDirs picks it for /usr alone,
# and the packages are made from this one layout. A build folder configured before
# this rule cached GNUInstallDirs' plain "lib": it moves too. A value given with -D on
# the command line (no type yet) is the user's and stays.
get_property(libdir_type CACHE CMAKE_INSTALL_LIBDIR PROPERTY TYPE)
if(NOT WIN32 AND NOT CMAKE_CROSSCOMPILING AND CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version
   AND (NOT DEFINED CMAKE_INSTALL_LIBDIR OR (CMAKE_INSTALL_LIBDIR STREQUAL "lib" AND libdir_type STREQUAL "PATH")))
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Object code libraries (LIBDIR)" FORCE)
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TAVRI_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/tavri)
set(TAVRI_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/TavriToshibaTeli)
set(TAVRI_INSTALL_DATADIR ${CMAKE_INSTALL_DATADIR}/tavri-toshiba-teli)
if(WIN32)
  # Windows resolves a DLL's imports from the DLL's own folder: the plug-in lies with
  # the host DLLs.
  set(TAVRI_INSTALL_PLUGINDIR ${CMAKE_INSTALL_BINDIR})
else()
  # A plug-in is loaded by path and never linked, so it stays out of the linker's
  # search path.
  set(TAVRI_INSTALL_PLUGINDIR ${CMAKE_INSTALL_LIBDIR}/tavri)
endif()

# --- host libraries -----------------------------------------------------------------
# The soname follows the project's major version: raise it with every ABI break.
set_target_properties(TavriAPI TavriCommon PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
install(TARGETS TavriCommon TavriAPI EXPORT TavriToshibaTeliTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  INCLUDES DESTINATION ${TAVRI_INSTALL_INCLUDEDIR})

# Public headers keep their folder, so a consumer includes them as this tree does
# ("TavriAPI/CameraDriver.h").
function(tavri_install_headers folder)
  list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/${folder}/)
  install(FILES ${ARGN} DESTINATION ${TAVRI_INSTALL_INCLUDEDIR}/${folder} COMPONENT dev)
endfunction()
tavri_install_headers(TavriAPI CameraAddresses.h CameraDriver.h ImageRecords.h ImageSet.h ImageSetMemory.h ImageType.h
  InternalCameraInfo.h SettingRanges.h TavriCameraToshibaTeli.h)
tavri_install_headers(TavriCommon Exceptions.h Logger.h Serialization.h Settings.h StdAbortThread.h)
tavri_install_headers(settings SettingsOld.h)
tavri_install_headers(sdk ControlRanges.h FrameInfo.h SdkOperations.h SdkResult.h TeliSdk.h TransportAddress.h)

# --- the plug-in ----------------------------------------------------------------------
# Installed binaries (the plug-in, teli-grab) find the host libraries, and teli-grab the
# plug-in, relative to themselves, so an installed tree works under any prefix, also
# when unpacked somewhere else.
set_target_properties(tavri_toshiba_teli PROPERTIES EXPORT_NAME toshiba_teli)
if(NOT WIN32)
  file(RELATIVE_PATH plugin_to_libdir
    ${CMAKE_INSTALL_FULL_LIBDIR}/tavri ${CMAKE_INSTALL_FULL_LIBDIR})
  string(REGEX REPLACE "/$" "" plugin_to_libdir "${plugin_to_libdir}")
  set_target_properties(tavri_toshiba_teli PROPERTIES INSTALL_RPATH "$ORIGIN/${plugin_to_libdir}")
endif()
install(TARGETS tavri_toshiba_teli EXPORT TavriToshibaTeliTargets
  RUNTIME DESTINATION ${TAVRI_INSTALL_PLUGINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${TAVRI_INSTALL_PLUGINDIR} COMPONENT runtime
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)

if(TAVRI_WITH_SIM)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/sdk/sim/rigs/ DESTINATION ${TAVRI_INSTALL_DATADIR}/rigs
    COMPONENT runtime FILES_MATCHING PATTERN "*.json")
endif()

# --- teli-grab --------------------------------------------------------------------------
if(TARGET teli-grab)
  file(RELATIVE_PATH bindir_to_libdir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH bindir_to_plugindir
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${TAVRI_INSTALL_PLUGINDIR})
  set_target_properties(teli-grab PROPERTIES INSTALL_RPATH "$ORIGIN/${bindir_to_libdir}")
  target_compile_definitions(teli_grab_core PRIVATE
    TELI_GRAB_PLUGIN_DIR_FROM_BINDIR="${bindir_to_plugindir}")
  install(TARGETS teli-grab RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  # The image codec module lies beside the plug-in, where teli-grab looks for it.
  install(TARGETS teli_grab_codecs LIBRARY DESTINATION ${TAVRI_INSTALL_PLUGINDIR} COMPONENT runtime)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/teli-grab.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME teli-grab COMPONENT tool)
  include(TavriManPage)
endif()

# --- the CMake package and the pkg-config file --------------------------------------------
install(EXPORT TavriToshibaTeliTargets NAMESPACE Tavri:: DESTINATION ${TAVRI_INSTALL_CMAKEDIR} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TavriToshibaTeliConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TavriToshibaTeliConfig.cmake
  INSTALL_DESTINATION ${TAVRI_INSTALL_CMAKEDIR}
  PATH_VARS TAVRI_INSTALL_PLUGINDIR TAVRI_INSTALL_DATADIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TavriToshibaTeliConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/TavriToshibaTeliConfig.cmake
  ${PROJECT_BINARY_DIR}/TavriToshibaTeliConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/TavriOpenCV.cmake
  DESTINATION ${TAVRI_INSTALL_CMAKEDIR} COMPONENT dev)

include(TavriPkgConfig)

