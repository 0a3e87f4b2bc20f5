#pragma once

#include <deque>
#include <functional>
#include <future>
#include <mutex>

#include "TavriAPI/CameraDriver.h"
#include "view/Reply.h"

namespace TeliGrab::View {

// The only way from the server's threads to the camera: work is posted here and run by
// the thread that owns the camera, so the driver is never called from two threads.
class TaskQueue {
public:
    using Work = std::function<Reply(Tavri::CameraDriver&)>;

    // The future is broken (std::future_error) when the queue closes before the work ran.
    std::future<Reply> post(Work work);

    bool hasWork() const;
    // Runs the waiting work on the calling thread, oldest first.
    void runAll(Tavri::CameraDriver& camera);
    // Drops the waiting work and refuses new work.
    void close();

private:
    mutable std::mutex mutex_;
    std::deque<std::packaged_task<Reply(Tavri::CameraDriver&)>> waiting_;
    bool closed_ = false;
};

}  // namespace TeliGrab::View
