#pragma once

// Writes files off the main thread, as the settings and the log need: the owner hands over a
// write that holds a snapshot of what to write, and the writer's own thread runs it. Writes
// run one at a time, in the order they were first handed over; a write handed over under a key
// that still waits replaces the waiting one, so a burst of saves costs one write. flush()
// waits until every write handed over so far has run; the destructor flushes, so a save just
// before termination is on disk after it.
//
// Threading: submit and flush from any thread (the owner's, in practice the main thread); the
// writes run on the writer's thread and must touch nothing the owner changes. Copying is
// deleted: the writer owns a thread.

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace quillstow {

class BackgroundWriter {
  public:
    using Write = std::function<void()>;

    BackgroundWriter();
    BackgroundWriter(const BackgroundWriter&) = delete;
    BackgroundWriter& operator=(const BackgroundWriter&) = delete;
    ~BackgroundWriter();

    // Never waits for a write: at most for the moment it takes to queue one.
    void submit(const std::string& key, Write write);
    // Until every write submitted before the call has run.
    void flush();

  private:
    void run(std::stop_token stop);

    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<std::string> order_;
    std::map<std::string, Write> waiting_;
    bool isWriting_ = false;
    // Last: the thread starts once everything above exists and is joined first.
    std::jthread thread_;
};

}  // namespace quillstow
