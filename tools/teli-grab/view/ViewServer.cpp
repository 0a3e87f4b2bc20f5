#include "view/ViewServer.h"

#include <algorithm>
#include <boost/format.hpp>
#include <nlohmann/json.hpp>

#include "ToolError.h"
#include "view/CameraActions.h"
#include "view/FrameAnalysis.h"
#include "view/FrameView.h"
#include "view/PageRequests.h"
#include "view/WebAssets.h"

namespace TeliGrab::View {

namespace {

// Bounds the wait of a request on the camera thread; a sequence of the longest length
// at the slowest trigger rate stays well within it.
constexpr auto kCameraAnswerTimeout = std::chrono::seconds(60);
constexpr auto kFrameWait = std::chrono::milliseconds(500);
constexpr std::size_t kMaxBody = 1 << 20;
const char* const kBoundary = "frame";

void answer(httplib::Response& response, const Reply& reply) {
    response.status = reply.status;
    if (!reply.fileName.empty())
        response.set_header("Content-Disposition", "attachment; filename=\"" + reply.fileName + "\"");
    response.set_header("Cache-Control", "no-store");
    response.set_content(reply.body, reply.contentType.c_str());
}

// Compares without stopping at the first difference, so the time taken does not tell
// how much of a guess was right.
bool sameToken(const std::string& given, const std::string& token) {
    unsigned difference = given.size() ^ token.size();
    for (std::size_t i = 0; i < token.size(); ++i) difference |= (i < given.size() ? given[i] : 0) ^ token[i];
    return difference == 0;
}

constexpr int kJpegQuality = 80;

// The histogram is taken from the newest frame when the page asks, twice a second,
// rather than for every frame.
nlohmann::json statusJson(const ViewedCamera& camera) {
    const auto stats = camera.loop.stats();
    nlohmann::json status{{"serial", camera.serial},
                          {"frames", stats.frames},
                          {"failures", stats.failures},
                          {"missing", stats.missing},
                          {"lastFailure", stats.lastFailure},
                          {"cameraFps", stats.framesPerSecond},
                          {"markSaturated", camera.hub.marksSaturated()}};
    if (const auto frame = camera.hub.latest()) {
        const auto analysis = analyse(frame->image);
        status["stamp"] = frame->stamp;
        status["width"] = frame->image.cols;
        status["height"] = frame->image.rows;
        status["histogram"] = analysis.histogram;
        status["saturatedShare"] = analysis.saturatedShare;
    }
    return status;
}

void answerFromCamera(TaskQueue& tasks, httplib::Response& response, TaskQueue::Work work) {
    auto future = tasks.post(std::move(work));
    if (future.wait_for(kCameraAnswerTimeout) != std::future_status::ready)
        return answer(response, errorReply(504, "the camera did not answer in time"));
    try {
        answer(response, future.get());
    } catch (const std::future_error&) {
        answer(response, errorReply(503, "the view is shutting down"));
    } catch (const std::exception& error) {
        answer(response, errorReply(500, error.what()));
    }
}

// A request httplib refused itself comes with an empty body; say what was wrong.
std::string refusalText(int status) {
    switch (status) {
    case 400: return "the request could not be read (a body shorter than its Content-Length, or a broken form)";
    case 404: return "no such page or API";
    case 413: return (boost::format("the body is larger than %d bytes") % kMaxBody).str();
    default: return "HTTP " + std::to_string(status);
    }
}

bool hasBodyLength(const httplib::Request& request) {
    return request.has_header("Content-Length") ||
           request.get_header_value("Transfer-Encoding").find("chunked") != std::string::npos;
}

std::string partHeader(const RawFrame& frame, std::size_t bytes) {
    return (boost::format("--%s\r\nContent-Type: image/jpeg\r\nContent-Length: %d\r\nX-Frame-Stamp: %d\r\n"
                          "X-Frame-Size: %dx%d\r\n\r\n") %
            kBoundary % bytes % frame.stamp % frame.image.cols % frame.image.rows)
        .str();
}

}  // namespace

ViewServer::ViewServer(const ListenAddress& address, std::string token) : token_(std::move(token)) {
    // SO_REUSEADDR alone: httplib's default, SO_REUSEPORT, would let a second view bind
    // the same port and take half of its connections instead of being refused.
    server_.set_socket_options([](socket_t socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    });
    server_.set_keep_alive_timeout(1);
    server_.set_payload_max_length(kMaxBody);
    addRoutes();
    if (address.port == 0)
        port_ = server_.bind_to_any_port(address.host);
    else if (server_.bind_to_port(address.host, address.port))
        port_ = address.port;
    else
        port_ = -1;
    if (port_ < 0)
        throw ToolError(ExitCode::Usage, (boost::format("cannot listen on %s:%d: the address is in use or not "
                                                        "this machine's") %
                                          address.host % address.port)
                                             .str());
    if (token_.empty()) {
        const std::string port = std::to_string(port_);
        ownHosts_ = {address.host + ":" + port, "localhost:" + port};
    }
}

ViewServer::~ViewServer() { stop(); }

void ViewServer::start(std::vector<ViewedCamera*> cameras) {
    cameras_ = std::move(cameras);
    thread_ = std::thread([this] { server_.listen_after_bind(); });
}

void ViewServer::stop() {
    // Streams and requests waiting on a camera end first, or the server's threads
    // could not be joined.
    stopping_ = true;
    for (auto* camera : cameras_) camera->tasks.close();
    server_.stop();
    if (thread_.joinable()) thread_.join();
    // No request runs any more; the cameras may go before the server does.
    cameras_.clear();
}

bool ViewServer::authorised(const httplib::Request& request) const {
    if (token_.empty()) {
        // Without a token, any web page in the user's browser could send requests here:
        // only requests for this server's own name, from its own page or none, are taken.
        const std::string host = request.get_header_value("Host");
        const bool ownHost = std::find(ownHosts_.begin(), ownHosts_.end(), host) != ownHosts_.end();
        const std::string origin = request.get_header_value("Origin");
        return ownHost && (origin.empty() || origin == "http://" + host);
    }
    if (request.has_param("token")) return sameToken(request.get_param_value("token"), token_);
    return sameToken(request.get_header_value("X-View-Token"), token_);
}

httplib::Server::Handler ViewServer::forCamera(CameraHandler handler) {
    return [this, handler](const httplib::Request& request, httplib::Response& response) {
        int index = 0;
        try {
            if (request.has_param("camera"))
                index = parseWholeNumber(request.get_param_value("camera"), "camera", 0,
                                         static_cast<int>(cameras_.size()) - 1);
        } catch (const RequestError& error) {
            return answer(response, errorReply(400, error.what()));
        }
        handler(*cameras_[index], request, response);
    };
}

// One long response of JPEG parts, each the newest frame in the view the page asked for.
void ViewServer::stream(ViewedCamera& camera, const httplib::Request& request, httplib::Response& response) {
    ViewRequest view;
    try {
        view = parseViewRequest(request.get_param_value("fit"), request.get_param_value("region"));
    } catch (const RequestError& error) {
        return answer(response, errorReply(400, error.what()));
    }
    response.set_header("Cache-Control", "no-store");
    auto last = std::make_shared<std::uint64_t>(0);
    response.set_chunked_content_provider(
        std::string("multipart/x-mixed-replace; boundary=") + kBoundary,
        [this, &hub = camera.hub, view, last](std::size_t, httplib::DataSink& sink) {
            // Waits in short steps so a stopping server ends the response soon.
            const auto frame = hub.next(*last, kFrameWait);
            if (stopping_ || hub.stopped()) return false;
            if (!frame) return sink.is_writable();
            *last = frame->stamp;
            const auto start = std::chrono::steady_clock::now();
            const auto jpeg = encodeJpeg(renderView(*frame, view, hub.marksSaturated()), kJpegQuality);
            hub.countEncoded(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            const std::string header = partHeader(*frame, jpeg.size());
            return sink.write(header.data(), header.size()) &&
                   sink.write(reinterpret_cast<const char*>(jpeg.data()), jpeg.size()) && sink.write("\r\n", 2);
        });
}

// A settings change from the page: checked here (400 with the reason), applied by the
// camera's thread.
void ViewServer::postChange(const char* path, SettingsChange (*parse)(const std::string&)) {
    server_.Post(path, forCamera([parse](ViewedCamera& camera, const httplib::Request& request,
                                         httplib::Response& response) {
        try {
            // A form's parts are not the body: the JSON would be missed, not refused.
            if (request.is_multipart_form_data())
                throw RequestError(std::string("POST ") + request.path +
                                   " takes JSON as the request's body, not a form (multipart/form-data)");
            auto change = parse(request.body);
            answerFromCamera(camera.tasks, response,
                             [change](Tavri::CameraDriver& driver) { return applyChange(driver, change); });
        } catch (const RequestError& error) {
            answer(response, errorReply(400, error.what()));
        }
    }));
}

void ViewServer::postWithoutBody(const std::string& path, httplib::Server::Handler handler) {
    server_.Post(path, handler);
    bodyless_.emplace(path, std::move(handler));
}

// httplib reads a POST without Content-Length until the client closes or its read
// times out, then answers an empty 400: such a POST (curl -X POST) is answered here
// before any body is read. A route that takes no body runs at once; one that needs a
// body is refused with the reason.
httplib::Server::HandlerResponse ViewServer::plainPost(const httplib::Request& request, httplib::Response& response) {
    if (request.method != "POST" || hasBodyLength(request)) return httplib::Server::HandlerResponse::Unhandled;
    const auto bodyless = bodyless_.find(request.path);
    if (bodyless != bodyless_.end()) {
        bodyless->second(request, response);
        return httplib::Server::HandlerResponse::Handled;
    }
    answer(response, errorReply(400, "POST " + request.path +
                                         " needs a JSON body with its length (Content-Length); none was sent"));
    // Whatever the client sends after is never read: the connection takes no other request.
    response.set_header("Connection", "close");
    return httplib::Server::HandlerResponse::Handled;
}

void ViewServer::addRoutes() {
    server_.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (authorised(request)) return plainPost(request, response);
        answer(response, errorReply(403, token_.empty() ? "requests from other sites are refused"
                                                        : "this view needs its token: open the address teli-grab printed"));
        return httplib::Server::HandlerResponse::Handled;
    });
    server_.set_error_handler(httplib::Server::Handler([](const httplib::Request&, httplib::Response& response) {
        if (response.body.empty()) answer(response, errorReply(response.status, refusalText(response.status)));
    }));

    server_.Get(R"(/|/view\.js|/view\.css)", [](const httplib::Request& request, httplib::Response& response) {
        const WebAsset* asset = findWebAsset(request.path == "/" ? "/index.html" : request.path);
        response.set_content(asset->body.data(), asset->body.size(), asset->contentType);
    });

    using Request = httplib::Request;
    using Response = httplib::Response;
    server_.Get("/stream", forCamera([this](ViewedCamera& camera, const Request& request, Response& response) {
        stream(camera, request, response);
    }));

    server_.Get("/api/cameras", [this](const Request&, Response& response) {
        nlohmann::json cameras = nlohmann::json::array();
        for (const auto* camera : cameras_) cameras.push_back({{"serial", camera->serial}});
        answer(response, {200, "application/json", nlohmann::json{{"cameras", cameras}}.dump(), ""});
    });

    server_.Get("/api/controls", [this](const Request&, Response& response) {
        answer(response, {200, "application/json", controlsJson(ranges_).dump(), ""});
    });

    server_.Get("/api/status", forCamera([](ViewedCamera& camera, const Request&, Response& response) {
        answer(response, {200, "application/json", statusJson(camera).dump(), ""});
    }));

    // The overlay is the page's, so it applies to every camera shown.
    postWithoutBody("/api/overlay", [this](const Request& request, Response& response) {
        const std::string value = request.get_param_value("saturated");
        if (value != "0" && value != "1") return answer(response, errorReply(400, "saturated must be 0 or 1"));
        for (auto* camera : cameras_) camera->hub.setMarkSaturated(value == "1");
        answer(response, {200, "application/json", nlohmann::json{{"markSaturated", value == "1"}}.dump(), ""});
    });

    server_.Get("/api/settings", forCamera([](ViewedCamera& camera, const Request&, Response& response) {
        answerFromCamera(camera.tasks, response, currentSettings);
    }));

    postChange("/api/settings", parseSettingsChange);

    server_.Get("/api/settings/file", forCamera([](ViewedCamera& camera, const Request&, Response& response) {
        answerFromCamera(camera.tasks, response, [](Tavri::CameraDriver& driver) {
            try {
                return Reply{200, "application/json", driver.settings().toJson() + "\n", "camera-settings.json"};
            } catch (const std::exception& error) {
                return errorReply(500, std::string("settings: ") + error.what());
            }
        });
    }));

    postChange("/api/settings/file", parseSettingsFile);

    server_.Get("/api/still.png", forCamera([this](ViewedCamera& camera, const Request&, Response& response) {
        const bool debayer = debayerStills_;
        answerFromCamera(camera.tasks, response,
                         [debayer](Tavri::CameraDriver& driver) { return stillPng(driver, debayer); });
    }));

    postWithoutBody("/api/sequence", forCamera([](ViewedCamera& camera, const Request& request, Response& response) {
        try {
            const int count = parseSequenceCount(request.get_param_value("count"));
            answerFromCamera(camera.tasks, response,
                             [count](Tavri::CameraDriver& driver) { return sequenceSheet(driver, count); });
        } catch (const RequestError& error) {
            answer(response, errorReply(400, error.what()));
        }
    }));
}

}  // namespace TeliGrab::View
