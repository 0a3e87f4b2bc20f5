# Packages made with CPack from the install rules (cmake/TavriInstall.cmake):
#   cpack -G DEB   one Debian package, its library dependencies computed by dpkg-shlibdeps
#   cpack -G ZIP   the Windows cross build's DLLs and headers
set(CPACK_PACKAGE_NAME tavri-toshiba-teli)
set(CPACK_PACKAGE_VENDOR "Tavri")
set(CPACK_PACKAGE_CONTACT "Tavri developers <tavri-dev@tavri.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Toshiba Teli camera-driver plug-in for the Tavri 3D scanning platform")
set(CPACK_PACKAGE_DESCRIPTION
  "The Tavri structured-light platform loads this plug-in to drive Toshiba Teli\n\
industrial cameras, and any GenICam GigE Vision or USB3 Vision camera through\n\
Aravis. The package holds the plug-in, the host libraries TavriAPI and\n\
TavriCommon with their headers, a CMake package and a pkg-config file, the\n\
command-line host teli-grab, and example files of the simulated camera rig.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CHECKSUM SHA256)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file, so packages built against the host libraries depend on this one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The libraries are in the linker's path: ldconfig runs as a trigger.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# What building against the headers takes besides this package.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libopencv-core-dev, libboost-dev, bash-completion")

# The package's copyright and changelog, where Debian expects them; the changelog
# compressed as Debian wants it (-n: the same bytes at every build).
set(tavri_doc ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_PACKAGE_NAME})
install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright DESTINATION ${tavri_doc})
find_program(TAVRI_GZIP gzip)
if(NOT WIN32 AND TAVRI_GZIP)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/packaging/changelog.gz
    COMMAND ${TAVRI_GZIP} -9nkf ${PROJECT_BINARY_DIR}/packaging/changelog
    DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog
    VERBATIM)
  add_custom_target(tavri-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/changelog.gz DESTINATION ${tavri_doc})
endif()

if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR DEB)
endif()
include(CPack)
