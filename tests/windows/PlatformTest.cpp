// The Windows kernel objects behind the driver's image event and request block.

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "platform/Platform.h"

namespace Tavri::platform {
namespace {

struct Event {
    EventHandle handle = createEvent();
    ~Event() { closeEvent(handle); }
};

// The kernel event as created (auto-reset, not signalled) and the kernel's own codes
// for a wait that ran its course and for a wait on nothing.
TEST(Win32Event, AutoResetNotSignalledWithTheKernelsWaitCodes) {
    Event event;
    ASSERT_NE(event.handle, nullptr);
    EXPECT_EQ(waitForEvent(event.handle, 0), static_cast<std::uint32_t>(WAIT_TIMEOUT)) << "must be created not signalled";
    ASSERT_TRUE(setEvent(event.handle));
    ASSERT_TRUE(setEvent(event.handle));  // two signals merge into one
    EXPECT_EQ(waitForEvent(event.handle, 0), 0u);
    EXPECT_EQ(waitForEvent(event.handle, 100), static_cast<std::uint32_t>(WAIT_TIMEOUT)) << "a wait must consume the signal (auto-reset)";
    EXPECT_FALSE(setEvent(nullptr));
    EXPECT_EQ(waitForEvent(nullptr, kInfinite), static_cast<std::uint32_t>(WAIT_FAILED));
    closeEvent(nullptr);
}

TEST(Win32Event, SignalFromAnotherThreadWakesAnEndlessWait) {
    Event event;
    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        setEvent(event.handle);
    });
    // Bounded by the test's own time-out in ctest.
    EXPECT_EQ(waitForEvent(event.handle, kInfinite), 0u);
    signaller.join();
}

TEST(Win32Block, IsCommittedReadWriteAndNotExecutable) {
    EXPECT_EQ(allocateBlock(0), nullptr);
    constexpr std::uint32_t bytes = 120u * 1000u + 17u;  // not a page multiple
    auto* block = static_cast<unsigned char*>(allocateBlock(bytes));
    ASSERT_NE(block, nullptr);
    MEMORY_BASIC_INFORMATION info{};
    ASSERT_NE(::VirtualQuery(block, &info, sizeof info), 0u);
    EXPECT_EQ(info.State, static_cast<DWORD>(MEM_COMMIT));
    EXPECT_EQ(info.Protect, static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_GE(info.RegionSize, bytes);
    std::memset(block, 0xA5, bytes);
    EXPECT_EQ(block[0], 0xA5);
    EXPECT_EQ(block[bytes - 1], 0xA5);
    freeBlock(block);
    ASSERT_NE(::VirtualQuery(block, &info, sizeof info), 0u);
    EXPECT_EQ(info.State, static_cast<DWORD>(MEM_FREE)) << "the whole reservation must be released";
    freeBlock(nullptr);
}

}  // namespace
}  // namespace Tavri::platform
