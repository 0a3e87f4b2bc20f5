# teli-grab(1), made by help2man from the tool's own --help and --version at build
# time, so the page never drifts from the options. A cross build cannot run the tool,
# and a sanitizer build's tool is not what is shipped: neither makes the page.
if(CMAKE_CROSSCOMPILING OR TAVRI_SANITIZE)
  return()
endif()
find_program(TAVRI_HELP2MAN help2man)
find_program(TAVRI_GZIP gzip)
if(NOT TAVRI_HELP2MAN OR NOT TAVRI_GZIP)
  message(STATUS "help2man or gzip not found: no man page for teli-grab (scripts/deps.sh installs them)")
  return()
endif()

set(man_page ${PROJECT_BINARY_DIR}/man/teli-grab.1)
add_custom_command(OUTPUT ${man_page}.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
  COMMAND ${TAVRI_HELP2MAN} --no-info --section=1
    "--name=load the Toshiba Teli camera-driver plug-in, list cameras, apply settings and grab images"
    --output=${man_page} $<TARGET_FILE:teli-grab>
  COMMAND ${CMAKE_COMMAND} -DPAGE=${man_page} -P ${PROJECT_SOURCE_DIR}/cmake/TavriManFormat.cmake
  # -n: no name or time stamp in the archive, so the same page packs the same bytes.
  COMMAND ${TAVRI_GZIP} -9nf ${man_page}
  DEPENDS teli-grab ${PROJECT_SOURCE_DIR}/cmake/TavriManFormat.cmake
  COMMENT "Generating the teli-grab man page with help2man"
  VERBATIM)
add_custom_target(teli-grab-man ALL DEPENDS ${man_page}.gz)
install(FILES ${man_page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
