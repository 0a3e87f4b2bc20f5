# Packages made with CPack from the install rules (cmake/TavriInstall.cmake):
#   cpack -G DEB   four Debian packages (runtime, -dev, teli-grab, python3-), their library
#                  dependencies computed by dpkg-shlibdeps
#   cpack -G ZIP   the Windows cross build's DLLs and headers
# Included at the end of the top level, once every packaged target exists.
set(CPACK_PACKAGE_NAME tavri-toshiba-teli)
set(CPACK_PACKAGE_VENDOR "Tavri")
set(CPACK_PACKAGE_CONTACT "Tavri developers <tavri-dev@tavri.invalid>")
# No CPACK_PACKAGE_DESCRIPTION_SUMMARY: CPack would put it in front of every package's
# own description below.
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CHECKSUM SHA256)

# Debian packages, one per install component (cmake/TavriInstall.cmake), split as Debian
# splits a library: the runtime package is named after the libraries' soname (policy
# 8.1: libraries whose sonames always change together may share one package).
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file for the packages with versioned libraries (the runtime package alone),
# so that packages built against the host libraries depend on it.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# teli-grab and the Python module link the host libraries, which no installed package
# describes yet: dpkg-shlibdeps finds them in the build tree and leaves them to the
# explicit dependency on the runtime package below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/bin)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(tavri_runtime_package libtavriapi${PROJECT_VERSION_MAJOR})
set(tavri_runtime_depends "${tavri_runtime_package} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${tavri_runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The libraries are in the linker's path, so ldconfig runs as a trigger.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Tavri host libraries and Toshiba Teli camera-driver plug-in
The Tavri structured-light platform loads this plug-in to drive Toshiba Teli
industrial cameras, and any GenICam GigE Vision or USB3 Vision camera through
Aravis. This package holds the plug-in, the host libraries TavriAPI and
TavriCommon, the image codec module of teli-grab and example files of the
simulated camera rig.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtavriapi-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# What the installed headers include and the CMake package looks up.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${tavri_runtime_depends}, libboost-dev, libopencv-core-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION "Tavri host libraries and camera-driver plug-in: development files
Headers of the host libraries TavriAPI and TavriCommon, their link names,
a CMake package (find_package(TavriToshibaTeli)) and a pkg-config file
(tavri-toshiba-teli) for hosts that load the Toshiba Teli plug-in.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME teli-grab)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${tavri_runtime_depends}")
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS "bash-completion")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "command-line host of the Tavri Toshiba Teli camera-driver plug-in
teli-grab loads the plug-in as the platform does, lists cameras, shows and
applies settings, and takes single images, triggered sequences and streams,
with a live view in the browser.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-tavri-teli)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Python 3 host of the Tavri Toshiba Teli camera-driver plug-in
The module tavri_teli loads the plug-in as teli-grab does: cameras, settings,
single images, triggered sequences as NumPy arrays without a copy, and streams.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${tavri_runtime_depends}, ${TAVRI_PYTHON_DEPENDS}")

# Each package carries the copyright and changelog where Debian expects them; the
# changelog compressed as Debian wants it (-n: the same bytes at every build).
find_program(TAVRI_GZIP gzip)
if(NOT WIN32 AND TAVRI_GZIP)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/packaging/changelog.gz
    COMMAND ${TAVRI_GZIP} -9nkf ${PROJECT_BINARY_DIR}/packaging/changelog
    DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog
    VERBATIM)
  add_custom_target(tavri-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
endif()
set(tavri_packaged_components runtime dev)
if(TARGET teli-grab)
  list(APPEND tavri_packaged_components tool)
endif()
if(TARGET tavri_teli)
  list(APPEND tavri_packaged_components python)
endif()
foreach(component IN LISTS tavri_packaged_components)
  string(TOUPPER ${component} upper)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright DESTINATION ${doc} COMPONENT ${component})
  if(TARGET tavri-changelog)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/changelog.gz DESTINATION ${doc} COMPONENT ${component})
  endif()
  # Lintian findings left on purpose, each with its reason in the file.
  set(overrides ${PROJECT_SOURCE_DIR}/packaging/lintian/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  if(NOT WIN32 AND EXISTS ${overrides})
    install(FILES ${overrides} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  endif()
endforeach()
set(CPACK_COMPONENTS_ALL ${tavri_packaged_components})

# cpack builds what the packages hold, not the whole tree: the install step depends on
# no target (CMAKE_SKIP_INSTALL_ALL_DEPENDENCY, top level), this builds the packaged ones.
set(tavri_packaged_targets TavriAPI TavriCommon tavri_toshiba_teli)
foreach(target teli-grab teli_grab_codecs teli-grab-man tavri-changelog tavri_teli)
  if(TARGET ${target})
    list(APPEND tavri_packaged_targets ${target})
  endif()
endforeach()
add_custom_target(tavri-packaged DEPENDS ${tavri_packaged_targets})
set(CPACK_INSTALL_COMMANDS "${CMAKE_COMMAND} --build ${PROJECT_BINARY_DIR} --target tavri-packaged")

if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR DEB)
endif()
include(CPack)
