#include "view/ViewCommand.h"

#include <array>
#include <atomic>
#include <csignal>
#include <iostream>
#include <memory>

#include "Session.h"
#include "ToolError.h"
#include "view/CameraLoop.h"
#include "view/FrameHub.h"
#include "view/ListenAddress.h"
#include "view/TaskQueue.h"
#include "view/ViewServer.h"

namespace TeliGrab {

namespace {

struct ViewOptions {
    std::string listen = "127.0.0.1:8080";
    std::string token;
};

// Lock-free, so safe in a signal handler, and atomic, since the signal may arrive on any
// of the process's threads while the camera thread reads it.
std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);
extern "C" void onStopSignal(int signal) { stopSignal = signal; }

// Ctrl-C, SIGTERM, a closed terminal (SIGHUP) and a reader gone from the pipe
// (SIGPIPE) end the view the normal way, so acquisition stops and the camera and the
// driver are released.
class StopSignals {
public:
    StopSignals() {
        for (std::size_t i = 0; i < kSignals.size(); ++i) previous_[i] = std::signal(kSignals[i], onStopSignal);
        stopSignal = 0;
    }
    ~StopSignals() {
        for (std::size_t i = 0; i < kSignals.size(); ++i) std::signal(kSignals[i], previous_[i]);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    static constexpr std::array<int, 4> kSignals{SIGINT, SIGTERM, SIGHUP, SIGPIPE};
    std::array<void (*)(int), 4> previous_{};
};

void serve(Session& session, const View::ListenAddress& address, const std::string& token, bool debayer) {
    View::TaskQueue tasks;
    View::FrameHub hub;
    auto& camera = session.camera();
    View::CameraLoop loop(camera, tasks, hub);
    View::ViewServer server(address, token, tasks, hub, loop);
    server.setDebayerStills(debayer);
    StopSignals signals;

    session.open();
    server.start();
    std::cout << "teli-grab view: http://" << address.host << ':' << server.port() << '/'
              << (token.empty() ? "" : "?token=" + token) << '\n'
              << "press Ctrl-C to stop" << std::endl;
    loop.run([] { return stopSignal != 0; });

    // Viewers first: their responses end once the hub stops, then the server's threads
    // can be joined; the camera is released when the session ends.
    hub.stop();
    server.stop();
    const auto stats = loop.stats();
    std::cout << "teli-grab view: stopped after " << stats.frames << " frames, " << stats.failures << " failures"
              << std::endl;
}

}  // namespace

void addViewCommand(CLI::App& app, const GlobalOptions& options) {
    auto settings = std::make_shared<ViewOptions>();
    auto* command = app.add_subcommand(
        "view", "Serve a live view with the camera's controls to a web browser, until Ctrl-C");
    command->add_option("--listen", settings->listen,
                        "ADDRESS:PORT to serve on; any address but 127.0.0.1 needs a token (port 0: any free port)")
        ->capture_default_str();
    command->add_option("--token", settings->token,
                        "token every request must carry (default off 127.0.0.1: a random one, printed at start)");
    command->callback([&options, settings] {
        const auto address = View::parseListenAddress(settings->listen);
        std::string token = settings->token;
        if (token.empty() && address.needsToken()) token = View::randomToken();
        withSession(options, [&](Session& session) { serve(session, address, token, options.debayer); });
    });
}

}  // namespace TeliGrab
