// The Windows kernel objects behind the driver's image event and request block; what
// every platform shares is in tests/unit/PlatformTest.cpp.

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "platform/Platform.h"

namespace Tavri::platform {
namespace {

struct Event {
    EventHandle handle = createEvent();
    ~Event() { closeEvent(handle); }
};

// The kernel event as created (auto-reset, not signalled), the kernel's own codes for
// a wait that ran its course and for a wait on nothing, and an endless wait (bounded
// by ctest's time-out) that another thread's signal ends.
TEST(Win32Event, AutoResetNotSignalledWithTheKernelsWaitCodes) {
    const Event owner;
    const EventHandle event = owner.handle;
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(waitForEvent(event, 0), static_cast<std::uint32_t>(WAIT_TIMEOUT)) << "must be created not signalled";
    ASSERT_TRUE(setEvent(event));
    ASSERT_TRUE(setEvent(event));  // two signals merge into one
    EXPECT_EQ(waitForEvent(event, 0), 0u);
    EXPECT_EQ(waitForEvent(event, 100), static_cast<std::uint32_t>(WAIT_TIMEOUT))
        << "a wait must consume the signal (auto-reset)";
    EXPECT_EQ(waitForEvent(nullptr, kInfinite), static_cast<std::uint32_t>(WAIT_FAILED));

    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        setEvent(event);
    });
    EXPECT_EQ(waitForEvent(event, kInfinite), 0u);
    signaller.join();
}

TEST(Win32Block, IsCommittedReadWriteNotExecutableAndReleasedWhole) {
    constexpr std::uint32_t bytes = 120u * 1000u + 17u;  // not a page multiple
    void* block = allocateBlock(bytes);
    ASSERT_NE(block, nullptr);
    MEMORY_BASIC_INFORMATION info{};
    ASSERT_NE(::VirtualQuery(block, &info, sizeof info), 0u);
    EXPECT_EQ(info.State, static_cast<DWORD>(MEM_COMMIT));
    EXPECT_EQ(info.Protect, static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_GE(info.RegionSize, bytes);
    freeBlock(block);
    ASSERT_NE(::VirtualQuery(block, &info, sizeof info), 0u);
    EXPECT_EQ(info.State, static_cast<DWORD>(MEM_FREE)) << "the whole reservation must be released";
}

}  // namespace
}  // namespace Tavri::platform
