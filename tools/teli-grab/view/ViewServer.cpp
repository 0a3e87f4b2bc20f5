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
nlohmann::json statusJson(const CameraLoop& loop, const FrameHub& hub) {
    const auto stats = loop.stats();
    nlohmann::json status{{"frames", stats.frames},
                          {"failures", stats.failures},
                          {"missing", stats.missing},
                          {"lastFailure", stats.lastFailure},
                          {"cameraFps", stats.framesPerSecond},
                          {"markSaturated", hub.marksSaturated()}};
    if (const auto frame = hub.latest()) {
        const auto analysis = analyse(frame->image);
        status["stamp"] = frame->stamp;
        status["width"] = frame->image.cols;
        status["height"] = frame->image.rows;
        status["histogram"] = analysis.histogram;
        status["saturatedShare"] = analysis.saturatedShare;
    }
    return status;
}

std::string partHeader(const RawFrame& frame, std::size_t bytes) {
    return (boost::format("--%s\r\nContent-Type: image/jpeg\r\nContent-Length: %d\r\nX-Frame-Stamp: %d\r\n"
                          "X-Frame-Size: %dx%d\r\n\r\n") %
            kBoundary % bytes % frame.stamp % frame.image.cols % frame.image.rows)
        .str();
}

}  // namespace

ViewServer::ViewServer(const ListenAddress& address, std::string token, TaskQueue& tasks, FrameHub& hub,
                       const CameraLoop& loop)
    : token_(std::move(token)), tasks_(tasks), hub_(hub), loop_(loop) {
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

void ViewServer::start() {
    thread_ = std::thread([this] { server_.listen_after_bind(); });
}

void ViewServer::stop() {
    // Streams and requests waiting on the camera end first, or the server's threads
    // could not be joined.
    stopping_ = true;
    tasks_.close();
    server_.stop();
    if (thread_.joinable()) thread_.join();
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

void ViewServer::answerFromCamera(httplib::Response& response, TaskQueue::Work work) {
    auto future = tasks_.post(std::move(work));
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

// One long response of JPEG parts, each the newest frame in the view the page asked for.
void ViewServer::stream(const httplib::Request& request, httplib::Response& response) {
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
        [this, view, last](std::size_t, httplib::DataSink& sink) {
            // Waits in short steps so a stopping server ends the response soon.
            const auto frame = hub_.next(*last, kFrameWait);
            if (stopping_ || hub_.stopped()) return false;
            if (!frame) return sink.is_writable();
            *last = frame->stamp;
            const auto start = std::chrono::steady_clock::now();
            const auto jpeg = encodeJpeg(renderView(*frame, view, hub_.marksSaturated()), kJpegQuality);
            hub_.countEncoded(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            const std::string header = partHeader(*frame, jpeg.size());
            return sink.write(header.data(), header.size()) &&
                   sink.write(reinterpret_cast<const char*>(jpeg.data()), jpeg.size()) && sink.write("\r\n", 2);
        });
}

// A settings change from the page: checked here (400 with the reason), applied by the
// camera's thread.
void ViewServer::postChange(const char* path, SettingsChange (*parse)(const std::string&)) {
    server_.Post(path, [this, parse](const httplib::Request& request, httplib::Response& response) {
        try {
            auto change = parse(request.body);
            answerFromCamera(response, [change](Tavri::CameraDriver& camera) { return applyChange(camera, change); });
        } catch (const RequestError& error) {
            answer(response, errorReply(400, error.what()));
        }
    });
}

void ViewServer::addRoutes() {
    server_.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (authorised(request)) return httplib::Server::HandlerResponse::Unhandled;
        answer(response, errorReply(403, token_.empty() ? "requests from other sites are refused"
                                                        : "this view needs its token: open the address teli-grab printed"));
        return httplib::Server::HandlerResponse::Handled;
    });

    server_.Get(R"(/|/view\.js|/view\.css)", [](const httplib::Request& request, httplib::Response& response) {
        const WebAsset* asset = findWebAsset(request.path == "/" ? "/index.html" : request.path);
        response.set_content(asset->body.data(), asset->body.size(), asset->contentType);
    });

    server_.Get("/stream", [this](const httplib::Request& request, httplib::Response& response) {
        stream(request, response);
    });

    server_.Get("/api/status", [this](const httplib::Request&, httplib::Response& response) {
        answer(response, {200, "application/json", statusJson(loop_, hub_).dump(), ""});
    });

    server_.Post("/api/overlay", [this](const httplib::Request& request, httplib::Response& response) {
        const std::string value = request.get_param_value("saturated");
        if (value != "0" && value != "1")
            return answer(response, errorReply(400, "saturated must be 0 or 1"));
        hub_.setMarkSaturated(value == "1");
        answer(response, {200, "application/json", nlohmann::json{{"markSaturated", value == "1"}}.dump(), ""});
    });

    server_.Get("/api/settings", [this](const httplib::Request&, httplib::Response& response) {
        answerFromCamera(response, currentSettings);
    });

    postChange("/api/settings", parseSettingsChange);

    server_.Get("/api/settings/file", [this](const httplib::Request&, httplib::Response& response) {
        answerFromCamera(response, [](Tavri::CameraDriver& camera) {
            try {
                return Reply{200, "application/json", camera.settings().toJson() + "\n", "camera-settings.json"};
            } catch (const std::exception& error) {
                return errorReply(500, std::string("settings: ") + error.what());
            }
        });
    });

    postChange("/api/settings/file", parseSettingsFile);

    server_.Get("/api/still.png", [this](const httplib::Request&, httplib::Response& response) {
        const bool debayer = debayerStills_;
        answerFromCamera(response, [debayer](Tavri::CameraDriver& camera) { return stillPng(camera, debayer); });
    });

    server_.Post("/api/sequence", [this](const httplib::Request& request, httplib::Response& response) {
        try {
            const int count = parseSequenceCount(request.get_param_value("count"));
            answerFromCamera(response, [count](Tavri::CameraDriver& camera) { return sequenceSheet(camera, count); });
        } catch (const RequestError& error) {
            answer(response, errorReply(400, error.what()));
        }
    });
}

}  // namespace TeliGrab::View
