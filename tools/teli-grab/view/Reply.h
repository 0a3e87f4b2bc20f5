#pragma once

#include <string>

namespace TeliGrab::View {

// What a request to the camera thread answers: an HTTP status and a body.
struct Reply {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    std::string fileName;  // non-empty: offered to the browser as a download
};

}  // namespace TeliGrab::View
