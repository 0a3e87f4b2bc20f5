#pragma once
// Where a listed camera is reached (its IP address on GigE): an optional interface of
// our own beside TeliSdk, found with dynamic_cast, as FrameInfoSource is.

#include <cstdint>
#include <string>

namespace Tavri {

class TransportAddressSource {
public:
    virtual ~TransportAddressSource() = default;
    // The address of the camera at `index` of the last count; empty when unknown.
    virtual std::string transportAddress(std::uint32_t index) = 0;
};

}  // namespace Tavri
