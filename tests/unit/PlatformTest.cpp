#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

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

// The request block, and the warm blocks of image sets, whose pages are all resident
// before the first write.
TEST(PlatformBlockTest, BlocksAreWritableNotExecutable) {
    struct Case {
        void* (*allocate)(std::size_t);
        void (*free)(void*, std::size_t);
        bool warm;
    };
    const Case cases[] = {
        {[](std::size_t bytes) { return allocateBlock(static_cast<std::uint32_t>(bytes)); },
         [](void* block, std::size_t) { freeBlock(block); }, false},
        {allocateWarmBlock, freeWarmBlock, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.warm ? "warm" : "request block");
        EXPECT_EQ(c.allocate(0), nullptr);
        const std::size_t bytes = 120 * 4096 + 7;
        auto* block = static_cast<std::uint8_t*>(c.allocate(bytes));
        ASSERT_NE(block, nullptr);
        if (c.warm) {
            const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
            std::vector<unsigned char> resident((bytes + page - 1) / page);
            ASSERT_EQ(::mincore(block, bytes, resident.data()), 0);
            EXPECT_EQ(std::count_if(resident.begin(), resident.end(), [](unsigned char r) { return !(r & 1); }), 0)
                << "pages left to fault in";
        }
        block[0] = 1;
        block[bytes - 1] = 2;
        EXPECT_EQ(block[0] + block[bytes - 1], 3);
        EXPECT_EQ(testing::mappingPermissions(block).substr(0, 3), "rw-");
        EXPECT_EQ(testing::mappingPermissions(block + bytes - 1).substr(0, 3), "rw-");
        c.free(block, bytes);
        c.free(nullptr, 0);
    }
}

}  // namespace
}  // namespace Tavri::platform
