#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/unit/DriverProbe.h"

namespace Tavri::testing {
namespace {

// Stays a while inside log(), so that installs on another thread land while calls are
// inside it: a logger freed under a call is a use-after-free the sanitizers report.
class SlowCountingLogger : public Log::LoggerInterface {
public:
    explicit SlowCountingLogger(std::atomic<int>& total) : total_(total) {}
    ~SlowCountingLogger() override { alive_ = false; }

    void log(int, const char*, int, const std::string& text) override {
        std::this_thread::sleep_for(std::chrono::microseconds(150));
        EXPECT_TRUE(alive_) << "'" << text << "' reached a destroyed logger";
        ++total_;
    }

private:
    std::atomic<int>& total_;
    std::atomic<bool> alive_{true};
};

TEST(LoggerSwapTest, InstallsDuringSequencesLoseNoRecordAndFreeNoLoggerInUse) {
    constexpr int kImages = 12;
    constexpr int kSequences = 40;
    std::atomic<int> swapped{0};  // records that reached the swapped-in loggers
    DriverFixture f;
    f.open();
    auto sequence = [&] {
        f.camera->startGrabSequenceAsync(kImages);
        std::thread camera([&] {
            for (int k = 0; k < kImages; ++k) {
                f.sdk.complete(1, static_cast<std::uint8_t>(k + 1), 8 * 4);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
        const auto set = f.camera->finishGrabSequenceAsync();
        camera.join();
        ASSERT_EQ(set->images.size(), static_cast<std::size_t>(kImages));
        EXPECT_EQ(set->images.back().at<std::uint8_t>(3, 7), kImages);
    };

    sequence();  // on the fixture's logger alone: how many records one sequence makes
    const std::size_t perSequence = f.log->records().size();
    ASSERT_GE(perSequence, 2u);
    f.log->clear();

    std::atomic<bool> done{false};
    std::thread swapper([&] {
        // Each replaced logger is dropped at once: only the calls inside it keep it alive.
        while (!done) {
            Log::GlobalLogger::install(std::make_shared<SlowCountingLogger>(swapped));
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });
    for (int i = 0; i < kSequences; ++i) sequence();
    done = true;
    swapper.join();

    // Every record reached exactly one logger: the fixture's before the first swap, or a
    // swapped-in one.
    EXPECT_EQ(f.log->records().size() + static_cast<std::size_t>(swapped.load()), kSequences * perSequence);
}

}  // namespace
}  // namespace Tavri::testing
