// One action at a quiet moment: 2.0 seconds after the last signal, 10.0 during a burst of more
// than 500 signals in five seconds, never after a cancel or once the debouncer is gone.

#include <gtest/gtest.h>

#include <cmath>

#include "copy/Debouncer.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

class DebouncerTest : public ::testing::Test {
  protected:
    ManualClock clock{100.0};
    VirtualMainQueue queue{clock};
    Debouncer debouncer{queue, clock};
    std::vector<double> fired;  // seconds since the start

    void record() { fired.push_back(clock.now() - 100.0); }
};

TEST(Debouncer, FiresOnceAtAQuietMomentAfterTheSignals) {
    struct Step {
        double at;  // seconds since the start
        int signals;
        bool cancel = false;
    };
    struct Case {
        const char* name;
        std::vector<Step> steps;
        std::vector<long> fired;  // milliseconds since the start
    };
    const Case cases[] = {
        {"two signals a second apart", {{0, 1}, {1, 1}}, {3000}},
        {"500 signals are no burst", {{0, 500}}, {2000}},
        {"501 signals are", {{0, 501}}, {10000}},
        {"signals exactly five seconds old still count", {{0, 400}, {5, 101}}, {2000, 15000}},
        {"older ones have left the window", {{0, 400}, {5.001, 101}}, {2000, 7001}},
        {"a cancel just before the delay", {{0, 1}, {1.999, 0, true}, {70, 1}}, {72000}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ManualClock caseClock{100.0};
        VirtualMainQueue caseQueue{caseClock};
        Debouncer caseDebouncer{caseQueue, caseClock};
        std::vector<long> times;
        for (const auto& step : c.steps) {
            caseQueue.advance(step.at - (caseClock.now() - 100.0));
            for (int i = 0; i < step.signals; ++i)
                caseDebouncer.schedule(
                    [&] { times.push_back(std::lround((caseClock.now() - 100.0) * 1000)); });
            if (step.cancel) caseDebouncer.cancel();
        }
        caseQueue.advance(60);
        EXPECT_EQ(times, c.fired);
    }
}

TEST_F(DebouncerTest, ADebouncerThatGoesAwayNeverRunsItsAction) {
    auto shortLived = std::make_unique<Debouncer>(queue, clock);
    shortLived->schedule([this] { record(); });
    shortLived.reset();
    queue.advance(60);
    EXPECT_TRUE(fired.empty());
}

}  // namespace
}  // namespace quillstow
