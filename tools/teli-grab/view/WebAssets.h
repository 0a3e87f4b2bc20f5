#pragma once

#include <string>
#include <string_view>

namespace TeliGrab::View {

// The page's files, built into the program from view/web/ so it never depends on
// files beside it.
struct WebAsset {
    std::string_view path;  // "/index.html", "/view.js", "/view.css"
    std::string contentType;
    std::string_view body;
};

// Null for a path the page does not have.
const WebAsset* findWebAsset(std::string_view path);

}  // namespace TeliGrab::View
