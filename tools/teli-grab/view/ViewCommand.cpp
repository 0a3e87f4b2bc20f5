#include "view/ViewCommand.h"

#include <array>
#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <thread>
#include <vector>

#include "RangeText.h"
#include "Session.h"
#include "ToolError.h"
#include "view/ListenAddress.h"
#include "view/ViewServer.h"
#include "view/ViewedCamera.h"

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

// Drives every camera on a thread of its own (the first on this one): each loop is the
// only caller of its camera object. A camera whose loop fails ends the view for all.
void runLoops(std::vector<std::unique_ptr<View::ViewedCamera>>& cameras) {
    std::atomic<bool> failed{false};
    std::vector<std::exception_ptr> errors(cameras.size());
    const auto run = [&](std::size_t i) {
        try {
            cameras[i]->loop.run([&] { return stopSignal != 0 || failed; });
        } catch (...) {
            errors[i] = std::current_exception();
            failed = true;
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i < cameras.size(); ++i) threads.emplace_back(run, i);
    run(0);
    for (auto& thread : threads) thread.join();
    for (const auto& error : errors)
        if (error) std::rethrow_exception(error);
}

void serve(Session& session, const GlobalOptions& options, const View::ListenAddress& address,
           const std::string& token) {
    View::ViewServer server(address, token);
    server.setDebayerStills(options.debayer);
    StopSignals signals;

    std::vector<std::unique_ptr<View::ViewedCamera>> cameras;
    std::vector<View::ViewedCamera*> served;
    for (const auto& [serial, driver] : session.openAll()) {
        // The controls act on the first camera: its ranges bound them.
        if (cameras.empty()) server.setRanges(settingRanges(*driver));
        cameras.push_back(std::make_unique<View::ViewedCamera>(serial, *driver));
        served.push_back(cameras.back().get());
    }
    server.start(served);
    std::cout << "teli-grab view: http://" << address.host << ':' << server.port() << '/'
              << (token.empty() ? "" : "?token=" + token) << '\n'
              << "press Ctrl-C to stop" << std::endl;
    // Viewers first: their responses end once the hubs stop, then the server's threads
    // can be joined; the cameras are released when the session ends.
    const auto stopViewers = [&] {
        for (auto& camera : cameras) camera->hub.stop();
        server.stop();
    };
    try {
        runLoops(cameras);
    } catch (...) {
        stopViewers();
        throw;
    }
    stopViewers();
    for (const auto& camera : cameras) {
        const auto stats = camera->loop.stats();
        std::cout << "teli-grab view: " << (cameras.size() > 1 ? camera->serial + " " : "") << "stopped after "
                  << stats.frames << " frames, " << stats.failures << " failures" << std::endl;
    }
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
        withSession(options, [&](Session& session) { serve(session, options, address, token); });
    });
}

}  // namespace TeliGrab
