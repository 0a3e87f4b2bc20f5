#pragma once

#include <httplib.h>

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "TavriAPI/SettingRanges.h"
#include "view/ListenAddress.h"
#include "view/PageRequests.h"
#include "view/ViewedCamera.h"

namespace TeliGrab::View {

// The page's HTTP server, for one camera or several side by side. A request picks its
// camera with the query parameter "camera" (its index in GET /api/cameras; default 0,
// so one camera keeps the plain API). Camera work goes through that camera's task
// queue; frames come from its hub, and each stream encodes the view its page asked for.
// With a token, every request must carry it (query parameter "token" or header
// "X-View-Token"); without one, only requests naming this server as their host and
// coming from its own page (or no page) are taken. Any other request is answered 403
// before a handler runs.
class ViewServer {
public:
    // Binds at once, so a busy port is reported before the cameras are opened.
    ViewServer(const ListenAddress& address, std::string token);
    ~ViewServer();
    ViewServer(const ViewServer&) = delete;
    ViewServer& operator=(const ViewServer&) = delete;

    int port() const { return port_; }
    // Stills of a Raw mosaic demosaiced, as --debayer asks.
    void setDebayerStills(bool debayer) { debayerStills_ = debayer; }
    // The ranges the controls carry: read from the camera before start(), since only
    // its loop may call the camera once it runs.
    void setRanges(std::vector<Tavri::SettingRange> ranges) { ranges_ = std::move(ranges); }
    // Serves `cameras` (at least one, each outliving the server's run) on a thread of
    // its own until stop().
    void start(std::vector<ViewedCamera*> cameras);
    void stop();

private:
    using CameraHandler = std::function<void(ViewedCamera&, const httplib::Request&, httplib::Response&)>;

    void addRoutes();
    // A route of one camera, the one the request names.
    httplib::Server::Handler forCamera(CameraHandler handler);
    // A POST route that reads no body, so it is served without one as well.
    void postWithoutBody(const std::string& path, httplib::Server::Handler handler);
    httplib::Server::HandlerResponse plainPost(const httplib::Request& request, httplib::Response& response);
    void postChange(const char* path, SettingsChange (*parse)(const std::string&));
    bool authorised(const httplib::Request& request) const;
    void stream(ViewedCamera& camera, const httplib::Request& request, httplib::Response& response);

    const std::string token_;
    std::vector<std::string> ownHosts_;  // Host headers taken without a token
    std::map<std::string, httplib::Server::Handler> bodyless_;
    std::vector<ViewedCamera*> cameras_;
    std::atomic<bool> stopping_{false};
    httplib::Server server_;
    int port_ = 0;
    std::vector<Tavri::SettingRange> ranges_;
    std::atomic<bool> debayerStills_{false};
    std::thread thread_;
};

}  // namespace TeliGrab::View
