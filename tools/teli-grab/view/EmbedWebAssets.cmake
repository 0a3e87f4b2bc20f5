# Writes OUTPUT, a C++ file holding the files of WEB_DIR as raw string literals, with
# their paths and content types, for findWebAsset. Run at build time: cmake -P.
set(entries "")
foreach(entry "index.html|text/html; charset=utf-8" "view.js|text/javascript; charset=utf-8"
              "view.css|text/css; charset=utf-8")
  string(REPLACE "|" ";" parts "${entry}")
  list(GET parts 0 name)
  list(GET parts 1 type)
  file(READ "${WEB_DIR}/${name}" body)
  string(FIND "${body}" ")webasset\"" clash)
  if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${name} contains the raw string delimiter )webasset\"")
  endif()
  string(APPEND entries "    {\"/${name}\", \"${type}\", R\"webasset(${body})webasset\"},\n")
endforeach()
file(WRITE "${OUTPUT}.tmp" "// Generated from tools/teli-grab/view/web by EmbedWebAssets.cmake; do not edit.
#include \"view/WebAssets.h\"

#include <array>

namespace TeliGrab::View {

namespace {
const std::array<WebAsset, 3> kAssets{{
${entries}}};
}  // namespace

const WebAsset* findWebAsset(std::string_view path) {
    for (const auto& asset : kAssets)
        if (asset.path == path) return &asset;
    return nullptr;
}

}  // namespace TeliGrab::View
")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
