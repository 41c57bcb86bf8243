// One action at a quiet moment: 2.0 seconds after the last signal, 10.0 during a burst of more
// than 500 signals in five seconds, never after a cancel or once the debouncer is gone.

#include <gtest/gtest.h>

#include <cmath>

#include "copy/Debouncer.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

TEST(Debouncer, FiresOnceAtAQuietMomentAfterTheSignals) {
    enum class Then { nothing, cancel, goAway };
    struct Step {
        double at;  // seconds since the start
        int signals;
        Then then = Then::nothing;
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
        {"a cancel just before the delay", {{0, 1}, {1.999, 0, Then::cancel}, {70, 1}}, {72000}},
        {"a debouncer gone before the delay", {{0, 1}, {1, 0, Then::goAway}}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ManualClock clock{100.0};
        VirtualMainQueue queue{clock};
        std::optional<Debouncer> debouncer(std::in_place, queue, clock);
        std::vector<long> fired;
        for (const auto& step : c.steps) {
            queue.advance(step.at - (clock.now() - 100.0));
            for (int i = 0; i < step.signals; ++i)
                debouncer->schedule(
                    [&] { fired.push_back(std::lround((clock.now() - 100.0) * 1000)); });
            if (step.then == Then::cancel) debouncer->cancel();
            if (step.then == Then::goAway) debouncer.reset();
        }
        queue.advance(60);
        EXPECT_EQ(fired, c.fired);
    }
}

}  // namespace
}  // namespace quillstow
