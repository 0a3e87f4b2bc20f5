# Packages made with CPack from the install rules (cmake/TavriInstall.cmake):
#   cpack -G DEB   one Debian package, its library dependencies computed by dpkg-shlibdeps
#   cpack -G ZIP   the Windows cross build's DLLs and headers
set(CPACK_PACKAGE_NAME tavri-toshiba-teli)
set(CPACK_PACKAGE_VENDOR "Tavri")
set(CPACK_PACKAGE_CONTACT "Tavri developers <tavri-dev@tavri.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Toshiba Teli camera-driver plug-in for the Tavri 3D scanning platform")
set(CPACK_PACKAGE_DESCRIPTION
  "The Tavri structured-light platform loads this plug-in to drive Toshiba Teli industrial\n\
cameras, and any GenICam GigE Vision or USB3 Vision camera through Aravis. The package\n\
holds the plug-in, the host libraries TavriAPI and TavriCommon with their headers, a CMake\n\
package and a pkg-config file, the command-line host teli-grab, and the simulated camera\n\
rig's example files.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CHECKSUM SHA256)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file and the ldconfig trigger, for the host libraries in the linker's path.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# What building against the headers takes besides this package.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libopencv-core-dev, libboost-dev, bash-completion")

if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR DEB)
endif()
include(CPack)
