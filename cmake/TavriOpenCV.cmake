# OpenCV targets opencv_core, opencv_imgproc, opencv_imgcodecs. Debian's per-module
# -dev packages ship headers and libraries but no CMake package, so when no
# OpenCVConfig.cmake is found the targets are made from the installed files.
find_package(OpenCV QUIET CONFIG COMPONENTS core imgproc imgcodecs)
if(NOT OpenCV_FOUND)
  find_path(TAVRI_OPENCV_INCLUDE opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
  foreach(module core imgproc imgcodecs)
    find_library(TAVRI_OPENCV_${module} opencv_${module})
    if(TAVRI_OPENCV_${module} AND NOT TARGET opencv_${module})
      add_library(opencv_${module} UNKNOWN IMPORTED)
      set_target_properties(opencv_${module} PROPERTIES
        IMPORTED_LOCATION ${TAVRI_OPENCV_${module}}
        INTERFACE_INCLUDE_DIRECTORIES ${TAVRI_OPENCV_INCLUDE})
    endif()
  endforeach()
  if(NOT TARGET opencv_core)
    message(FATAL_ERROR "OpenCV core not found: install libopencv-core-dev (scripts/deps.sh)")
  endif()
endif()
