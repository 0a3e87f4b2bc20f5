# Cross-build for 64-bit Windows with mingw-w64 (posix threads), run under wine.
#
# Dependencies for the target come from a cache folder outside the clone
# (TAVRI_CACHE, default ~/.cache/tavri), prepared by scripts/build-opencv-mingw.sh:
#   opencv-mingw/install   OpenCV core, static, built for mingw
#   mingw-deps/include     boost, nlohmann, spdlog and fmt only (symlinks), so no
#                          Linux header under /usr/include leaks into the build
#   mingw-deps/lib/cmake   package configs for the header-only libraries

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(DEFINED ENV{TAVRI_CACHE} AND NOT "$ENV{TAVRI_CACHE}" STREQUAL "")
  set(TAVRI_MINGW_CACHE "$ENV{TAVRI_CACHE}")
else()
  set(TAVRI_MINGW_CACHE "$ENV{HOME}/.cache/tavri")
endif()
set(TAVRI_MINGW_OPENCV "${TAVRI_MINGW_CACHE}/opencv-mingw/install")
set(TAVRI_MINGW_DEPS "${TAVRI_MINGW_CACHE}/mingw-deps")

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${TAVRI_MINGW_OPENCV}" "${TAVRI_MINGW_DEPS}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Where each package lives, so find_package never looks at the build machine's own.
if(NOT DEFINED OpenCV_DIR)
  set(OpenCV_DIR "${TAVRI_MINGW_OPENCV}/lib/cmake/opencv4" CACHE PATH "OpenCV for mingw")
endif()
if(NOT DEFINED nlohmann_json_DIR)
  set(nlohmann_json_DIR "${TAVRI_MINGW_DEPS}/lib/cmake/nlohmann_json" CACHE PATH "")
endif()
if(NOT DEFINED spdlog_DIR)
  set(spdlog_DIR "${TAVRI_MINGW_DEPS}/lib/cmake/spdlog" CACHE PATH "")
endif()
set(Boost_NO_BOOST_CMAKE ON)
set(Boost_NO_SYSTEM_PATHS ON)
if(NOT DEFINED Boost_INCLUDE_DIR)
  set(Boost_INCLUDE_DIR "${TAVRI_MINGW_DEPS}/include" CACHE PATH "Boost headers")
endif()

# No libstdc++, libgcc or winpthread DLL to ship beside the binaries. A DLL without
# explicit exports exports all its symbols; --exclude-libs keeps the runtime it links
# statically out of that list, or every DLL linked against it would get the runtime
# twice.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -Wl,--exclude-libs,ALL")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static -Wl,--exclude-libs,ALL")

# ctest runs the Windows programs under wine.
find_program(TAVRI_WINE NAMES wine wine64)
if(TAVRI_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${TAVRI_WINE}")
endif()
