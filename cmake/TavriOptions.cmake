# Build switches shared by every folder.
option(TAVRI_BUILD_TESTS "Build the test suites" ON)
option(TAVRI_BUILD_TOOLS "Build teli-grab" ON)
option(TAVRI_BUILD_BENCHMARKS "Build the benchmarks" ON)
option(TAVRI_WITH_SIM "Build the simulated camera rig backend" ON)
if(WIN32)
  option(TAVRI_WITH_TELI "Build the vendor DLL binding" ON)
  option(TAVRI_WITH_ARAVIS "Build the Aravis backend" OFF)
else()
  option(TAVRI_WITH_TELI "Build the vendor DLL binding" OFF)
  option(TAVRI_WITH_ARAVIS "Build the Aravis backend" ON)
endif()
set(TAVRI_SANITIZE "" CACHE STRING "Sanitizers: empty, address, or thread")

# GCC marks header-defined statics (inline variables, statics in inline functions) as
# GNU-unique; a dlopen'ed plug-in that alone defines one can never be unloaded, and a
# host could then not load it again with another backend or rig.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fno-gnu-unique>)
endif()

add_library(tavri_warnings INTERFACE)
target_compile_options(tavri_warnings INTERFACE -Wall -Wextra)

if(TAVRI_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(TAVRI_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
