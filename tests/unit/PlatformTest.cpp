#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/Platform.h"
#include "tests/support/TestHelpers.h"

namespace Tavri::platform {
namespace {

struct EventGuard {
    EventHandle handle = createEvent();
    ~EventGuard() { closeEvent(handle); }
};

TEST(PlatformEventTest, AutoResetSignalsMergeAndTimeOut) {
    EventGuard event;
    ASSERT_NE(event.handle, nullptr);
    EXPECT_NE(waitForEvent(event.handle, 0), 0u) << "created not signalled";
    ASSERT_TRUE(setEvent(event.handle));
    ASSERT_TRUE(setEvent(event.handle));
    EXPECT_EQ(waitForEvent(event.handle, 0), 0u);
    EXPECT_NE(waitForEvent(event.handle, 10), 0u) << "two signals before a wait merge into one";
    EXPECT_NE(waitForEvent(nullptr, 0), 0u);
    EXPECT_FALSE(setEvent(nullptr));
}

TEST(PlatformEventTest, InfiniteWaitIsWokenFromAnotherThread) {
    EventGuard event;
    std::atomic<bool> woke{false};
    std::thread waiter([&] {
        EXPECT_EQ(waitForEvent(event.handle, kInfinite), 0u);
        woke = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    setEvent(event.handle);
    waiter.join();
    EXPECT_TRUE(woke);
}

TEST(PlatformBlockTest, BlockIsWritableNotExecutable) {
    EXPECT_EQ(allocateBlock(0), nullptr);
    const std::uint32_t bytes = 120 * 4096 + 7;
    auto* block = static_cast<std::uint8_t*>(allocateBlock(bytes));
    ASSERT_NE(block, nullptr);
    block[0] = 1;
    block[bytes - 1] = 2;
    EXPECT_EQ(block[0] + block[bytes - 1], 3);
    EXPECT_EQ(testing::mappingPermissions(block).substr(0, 3), "rw-");
    EXPECT_EQ(testing::mappingPermissions(block + bytes - 1).substr(0, 3), "rw-");
    freeBlock(block);
    freeBlock(nullptr);
}

}  // namespace
}  // namespace Tavri::platform
