// Opens a settings folder as the program does at start and prints how long that took and how
// many events the log holds: for the log-load benchmark, which runs it under /usr/bin/time.

#include <chrono>
#include <cstdio>

#include "model/ConfigStore.hpp"
#include "support/Clock.hpp"
#include "support/UserDefaults.hpp"
#include "support/VirtualMainQueue.hpp"

int main(int argc, char** argv) {
    using namespace quillstow;
    if (argc != 2) {
        std::fprintf(stderr, "usage: quillstow-log-load SETTINGS-FOLDER\n");
        return 2;
    }
    ManualClock clock;
    VirtualMainQueue queue(clock);
    InMemoryUserDefaults defaults;
    const auto start = std::chrono::steady_clock::now();
    const ConfigStore store(argv[1], queue, defaults);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("%zu events in %.2f s\n", store.events().size(), took.count());
    return 0;
}
