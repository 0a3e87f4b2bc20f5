# What an install puts where. One install() per shipped target, so that a renamed or
# added target changes one line here. Included at the end of the top level, once every
# target exists.
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
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${TAVRI_INSTALL_INCLUDEDIR})

# Public headers keep their folder, so a consumer includes them as this tree does
# ("TavriAPI/CameraDriver.h").
function(tavri_install_headers folder)
  list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/${folder}/)
  install(FILES ${ARGN} DESTINATION ${TAVRI_INSTALL_INCLUDEDIR}/${folder})
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
  RUNTIME DESTINATION ${TAVRI_INSTALL_PLUGINDIR}
  LIBRARY DESTINATION ${TAVRI_INSTALL_PLUGINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

if(TAVRI_WITH_SIM)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/sdk/sim/rigs/ DESTINATION ${TAVRI_INSTALL_DATADIR}/rigs
    FILES_MATCHING PATTERN "*.json")
endif()

# --- teli-grab --------------------------------------------------------------------------
if(TARGET teli-grab)
  file(RELATIVE_PATH bindir_to_libdir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH bindir_to_plugindir
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${TAVRI_INSTALL_PLUGINDIR})
  set_target_properties(teli-grab PROPERTIES INSTALL_RPATH "$ORIGIN/${bindir_to_libdir}")
  target_compile_definitions(teli_grab_core PRIVATE
    TELI_GRAB_PLUGIN_DIR_FROM_BINDIR="${bindir_to_plugindir}")
  install(TARGETS teli-grab RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The image codec module lies beside the plug-in, where teli-grab looks for it.
  install(TARGETS teli_grab_codecs LIBRARY DESTINATION ${TAVRI_INSTALL_PLUGINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/teli-grab.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME teli-grab)
  include(TavriManPage)
endif()

# --- the CMake package and the pkg-config file --------------------------------------------
install(EXPORT TavriToshibaTeliTargets NAMESPACE Tavri:: DESTINATION ${TAVRI_INSTALL_CMAKEDIR})
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
  DESTINATION ${TAVRI_INSTALL_CMAKEDIR})

include(TavriPkgConfig)

