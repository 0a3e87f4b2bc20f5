# tavri-toshiba-teli.pc for builds that use pkg-config. The prefix is taken from the
# file's own place (${pcfiledir}), so the file stays right wherever the tree is
# installed or unpacked. Debian's OpenCV module packages ship no .pc of their own, so
# OpenCV core's flags are written out here as the build found them.
file(RELATIVE_PATH pcdir_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pcdir_to_prefix "${pcdir_to_prefix}")

set(TAVRI_PC_CFLAGS "")
get_target_property(opencv_includes opencv_core INTERFACE_INCLUDE_DIRECTORIES)
foreach(directory IN LISTS opencv_includes Boost_INCLUDE_DIRS)
  if(directory AND NOT directory MATCHES "^\\$<"
      AND NOT directory IN_LIST CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES)
    string(APPEND TAVRI_PC_CFLAGS " -I${directory}")
  endif()
endforeach()
# The plug-in's file name is known at generation time only.
configure_file(${PROJECT_SOURCE_DIR}/cmake/tavri-toshiba-teli.pc.in
  ${PROJECT_BINARY_DIR}/tavri-toshiba-teli.pc.in @ONLY)
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/tavri-toshiba-teli.pc
  INPUT ${PROJECT_BINARY_DIR}/tavri-toshiba-teli.pc.in)
install(FILES ${PROJECT_BINARY_DIR}/tavri-toshiba-teli.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
