// The SDK's request-queue operations: requests made, released, queued, taken and
// flushed.

#include <algorithm>

#include "sdk/sim/SimImpl.h"

namespace Tavri::sim {

using namespace SimResult;

Result SimSdk::sdkCreateRequest(StreamHandle stream, void* buffer, std::uint32_t size, RequestHandle* request) {
    return impl->withStream(Op::sdkCreateRequest, stream, Access::HostSide, false,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>&) {
                                if (!request || !buffer || size == 0) return InvalidArgument;
                                if (s.requests.size() >= kMaxRequestsPerStream) return TooManyRequests;
                                auto* created = impl->keep(HandleKind::Request, std::make_shared<RequestObj>(
                                    d.shared_from_this(), &s, static_cast<std::uint8_t*>(buffer), size));
                                s.requests.push_back(created);
                                *request = created->handle;
                                return Success;
                            });
}

Result SimSdk::sdkReleaseRequest(StreamHandle stream, RequestHandle request) {
    return impl->withStream(Op::sdkReleaseRequest, stream, Access::HostSide, false,
                            [&](Device&, StreamObj& s, std::unique_lock<std::mutex>&) {
                                RequestObj* r = nullptr;
                                if (Result code = impl->request(s, request, r)) return code;
                                if (r->state != RequestObj::State::Held) return RequestBusy;
                                auto& all = s.requests;
                                all.erase(std::remove(all.begin(), all.end(), r), all.end());
                                impl->retire(*r);
                                return Success;
                            });
}

Result SimSdk::sdkEnqueueRequest(StreamHandle stream, RequestHandle request) {
    return impl->withStream(Op::sdkEnqueueRequest, stream, Access::HostSide, false,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>&) {
                                RequestObj* r = nullptr;
                                if (Result code = impl->request(s, request, r)) return code;
                                if (r->state != RequestObj::State::Held) return RequestBusy;
                                queueRequest(d, s, *r);
                                return Success;
                            });
}

Result SimSdk::sdkTakeCompletedRequest(StreamHandle stream, RequestHandle* request, std::uint8_t** buffer,
                                       std::uint32_t* size) {
    return impl->withStream(Op::sdkTakeCompletedRequest, stream, Access::HostSide, false,
                            [&](Device& d, StreamObj& s, std::unique_lock<std::mutex>&) {
                                if (!request || !buffer || !size) return InvalidArgument;
                                if (s.completed.empty()) {
                                    s.event.settle(false);
                                    return NoCompletedRequest;
                                }
                                RequestObj* r = s.completed.front();
                                s.completed.pop_front();
                                r->state = RequestObj::State::Held;
                                *request = r->handle;
                                *buffer = r->buffer;
                                *size = r->bytes;
                                s.lastTaken = r;
                                s.lastTakenId = r->frameId;
                                s.lastTakenCaptureNs = r->captureNs;
                                s.lastTakenPulse = r->pulse;
                                s.lastTakenFailed = r->tooLarge;
                                const bool failed = r->tooLarge;
                                // The failed-take rule (sdk/TeliSdk.h): while acquiring, a
                                // failed frame's request goes straight back to the wait queue.
                                if (failed && s.acquiring) queueRequest(d, s, *r);
                                s.event.settle(!s.completed.empty());
                                return failed ? FrameTooLarge : Success;
                            });
}

Result SimSdk::sdkFlushWaitQueue(StreamHandle stream) {
    return impl->withStream(Op::sdkFlushWaitQueue, stream, Access::HostSide, false,
                            [&](Device&, StreamObj& s, std::unique_lock<std::mutex>& lock) {
                                for (auto* r : s.waiting) r->state = RequestObj::State::Held;
                                s.waiting.clear();
                                // On a stream still acquiring (a grab that failed left it
                                // so), frames taken but not yet delivered are dropped too,
                                // as a stream restart drops them on a camera: every request
                                // not completed is the host's again, so the next start can
                                // queue the whole pool. One being drawn is waited for.
                                s.filled.wait(lock, [&] {
                                    return std::all_of(s.inFlight.begin(), s.inFlight.end(),
                                                       [](const InFlight& f) { return f.ready; });
                                });
                                for (auto& f : s.inFlight) f.request->state = RequestObj::State::Held;
                                s.inFlight.clear();
                                return Success;
                            });
}

}  // namespace Tavri::sim
