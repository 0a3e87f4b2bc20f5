#pragma once

#include <httplib.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "view/CameraLoop.h"
#include "view/FrameHub.h"
#include "view/ListenAddress.h"
#include "view/PageRequests.h"
#include "view/TaskQueue.h"

namespace TeliGrab::View {

// The page's HTTP server. Camera work goes through the task queue; frames come from the
// hub, and each stream encodes the view its page asked for. With a token, every request
// must carry it (query parameter "token" or header "X-View-Token"); without one, only
// requests naming this server as their host and coming from its own page (or no page)
// are taken. Any other request is answered 403 before a handler runs.
class ViewServer {
public:
    // Binds at once, so a busy port is reported before the camera is opened.
    ViewServer(const ListenAddress& address, std::string token, TaskQueue& tasks, FrameHub& hub,
               const CameraLoop& loop);
    ~ViewServer();
    ViewServer(const ViewServer&) = delete;
    ViewServer& operator=(const ViewServer&) = delete;

    int port() const { return port_; }
    // Stills of a Raw mosaic demosaiced, as --debayer asks.
    void setDebayerStills(bool debayer) { debayerStills_ = debayer; }
    // Serves on a thread of its own until stop().
    void start();
    void stop();

private:
    void addRoutes();
    void postChange(const char* path, SettingsChange (*parse)(const std::string&));
    bool authorised(const httplib::Request& request) const;
    void answerFromCamera(httplib::Response& response, TaskQueue::Work work);
    void stream(const httplib::Request& request, httplib::Response& response);

    const std::string token_;
    std::vector<std::string> ownHosts_;  // Host headers taken without a token
    TaskQueue& tasks_;
    FrameHub& hub_;
    const CameraLoop& loop_;
    std::atomic<bool> stopping_{false};
    httplib::Server server_;
    int port_ = 0;
    std::atomic<bool> debayerStills_{false};
    std::thread thread_;
};

}  // namespace TeliGrab::View
