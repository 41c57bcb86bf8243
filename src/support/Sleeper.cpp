#include "support/Sleeper.hpp"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace quillstow {

void Sleeper::sleep(double seconds, std::stop_token stop) const {
    if (seconds <= 0) return;
    std::mutex mutex;
    std::condition_variable_any wakeUp;
    std::unique_lock lock(mutex);
    wakeUp.wait_for(lock, stop, std::chrono::duration<double>(seconds), [] { return false; });
}

}  // namespace quillstow
