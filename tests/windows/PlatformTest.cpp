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

TEST(Win32Event, IsAutoResetAndStartsNotSignalled) {
    Event event;
    ASSERT_NE(event.handle, nullptr);
    EXPECT_NE(waitForEvent(event.handle, 0), 0u) << "a new event must not be signalled";
    ASSERT_TRUE(setEvent(event.handle));
    ASSERT_TRUE(setEvent(event.handle));  // two signals merge into one
    EXPECT_EQ(waitForEvent(event.handle, 0), 0u);
    EXPECT_NE(waitForEvent(event.handle, 0), 0u) << "the first wait must consume the signal";
}

TEST(Win32Event, TimedWaitReallyTimesOut) {
    Event event;
    // The kernel's own time-out code, not a failure: the wait ran its course.
    EXPECT_EQ(waitForEvent(event.handle, 100), static_cast<std::uint32_t>(WAIT_TIMEOUT));
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

TEST(Win32Event, NullHandleFailsInsteadOfWaiting) {
    EXPECT_FALSE(setEvent(nullptr));
    EXPECT_NE(waitForEvent(nullptr, kInfinite), 0u);
    closeEvent(nullptr);
}

TEST(Win32Block, IsCommittedReadWriteAndNotExecutable) {
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
}

TEST(Win32Block, ZeroBytesGiveNoBlock) {
    EXPECT_EQ(allocateBlock(0), nullptr);
    freeBlock(nullptr);
}

}  // namespace
}  // namespace Tavri::platform
