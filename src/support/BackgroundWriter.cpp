#include "support/BackgroundWriter.hpp"

#include <exception>

namespace quillstow {

BackgroundWriter::BackgroundWriter()
    : thread_([this](std::stop_token stop) { run(std::move(stop)); }) {}

BackgroundWriter::~BackgroundWriter() {
    flush();
    thread_.request_stop();
    changed_.notify_all();
}

void BackgroundWriter::submit(const std::string& key, Write write) {
    {
        std::lock_guard lock(mutex_);
        // A waiting write of the same key keeps its place and takes the newer content.
        if (!waiting_.contains(key)) order_.push_back(key);
        waiting_[key] = std::move(write);
    }
    changed_.notify_all();
}

void BackgroundWriter::flush() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return order_.empty() && !isWriting_; });
}

void BackgroundWriter::run(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, stop, [&] { return !order_.empty(); });
        if (order_.empty()) return;  // stopped, with nothing left to write
        const std::string key = order_.front();
        order_.pop_front();
        Write write = std::move(waiting_.at(key));
        waiting_.erase(key);
        isWriting_ = true;
        lock.unlock();
        try {
            write();
        } catch (const std::exception&) {
            // A write reports its own failures; one that escapes must not end the writer.
        }
        lock.lock();
        isWriting_ = false;
        changed_.notify_all();
    }
}

}  // namespace quillstow
