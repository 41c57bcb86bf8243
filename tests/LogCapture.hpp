#pragma once

// Catches what the program logs, for the length of a test.

#include <mutex>
#include <vector>

#include "support/Logger.hpp"

namespace quillstow::testing {

class LogCapture {
  public:
    LogCapture() : sink_(std::make_shared<Sink>()) { previous_ = setLogSink(sink_); }
    ~LogCapture() { setLogSink(previous_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> records() const {
        std::lock_guard lock(sink_->mutex);
        return sink_->records;
    }

    // The messages of one category, in order.
    std::vector<std::string> messages(const std::string& category) const {
        std::vector<std::string> found;
        for (const auto& record : records())
            if (record.category == category) found.push_back(record.message);
        return found;
    }

  private:
    struct Sink final : LogSink {
        void write(const LogRecord& record) override {
            std::lock_guard lock(mutex);
            records.push_back(record);
        }
        mutable std::mutex mutex;
        std::vector<LogRecord> records;
    };
    std::shared_ptr<Sink> sink_;
    std::shared_ptr<LogSink> previous_;
};

}  // namespace quillstow::testing
