#include "view/TaskQueue.h"

namespace TeliGrab::View {

std::future<Reply> TaskQueue::post(Work work) {
    std::packaged_task<Reply(Tavri::CameraDriver&)> task(std::move(work));
    auto future = task.get_future();
    std::lock_guard<std::mutex> lock(mutex_);
    // A task dropped unrun breaks its promise, which the waiting request reports.
    if (!closed_) waiting_.push_back(std::move(task));
    return future;
}

bool TaskQueue::hasWork() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return !waiting_.empty();
}

void TaskQueue::runAll(Tavri::CameraDriver& camera) {
    for (;;) {
        std::packaged_task<Reply(Tavri::CameraDriver&)> task;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (waiting_.empty()) return;
            task = std::move(waiting_.front());
            waiting_.pop_front();
        }
        task(camera);
    }
}

void TaskQueue::close() {
    std::deque<std::packaged_task<Reply(Tavri::CameraDriver&)>> dropped;
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    dropped.swap(waiting_);
}

}  // namespace TeliGrab::View
