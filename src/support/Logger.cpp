#include "support/Logger.hpp"

#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <mutex>

#include "support/Base64.hpp"

namespace quillstow {

namespace {

class StandardErrorSink final : public LogSink {
  public:
    void write(const LogRecord& record) override {
        static constexpr const char* levels[] = {"info", "default", "error"};
        std::lock_guard lock(mutex_);
        std::fprintf(stderr, "%s [%s] %s: %s\n", logSubsystem, record.category.c_str(),
                     levels[int(record.level)], record.message.c_str());
    }

  private:
    std::mutex mutex_;
};

class JournalSink final : public LogSink {
  public:
    void write(const LogRecord& record) override {
        static constexpr int priorities[] = {LOG_INFO, LOG_NOTICE, LOG_ERR};
        sd_journal_send("MESSAGE=%s", record.message.c_str(), "PRIORITY=%i",
                        priorities[int(record.level)], "SUBSYSTEM=%s", logSubsystem, "CATEGORY=%s",
                        record.category.c_str(), "SYSLOG_IDENTIFIER=quillstow", nullptr);
    }
};

std::mutex sinkMutex;
std::shared_ptr<LogSink>& currentSink() {
    static std::shared_ptr<LogSink> sink = makeSystemLogSink();
    return sink;
}

// A stable, short hash of a private value: equal values can be matched in the log, and the
// value can't be read back.
std::string maskHash(const std::string& value) {
    std::uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (unsigned char c : value) {
        hash ^= c;
        hash *= 1099511628211ull;
    }
    base64::Bytes bytes;
    for (int i = 0; i < 8; ++i)
        bytes.push_back(std::uint8_t(hash >> (8 * i)));
    return "<mask.hash: '" + base64::encode(bytes) + "'>";
}

}  // namespace

std::shared_ptr<LogSink> makeSystemLogSink() {
    if (::access("/run/systemd/journal/socket", W_OK) == 0) return std::make_shared<JournalSink>();
    return std::make_shared<StandardErrorSink>();
}

std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink) {
    std::lock_guard lock(sinkMutex);
    std::swap(currentSink(), sink);
    return sink;
}

std::string formatLogMessage(std::string_view format, const std::vector<std::string>& arguments) {
    std::string message;
    std::size_t next = 0;
    const auto argument = [&]() -> std::string {
        return next < arguments.size() ? arguments[next++] : std::string("<missing>");
    };
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%' || i + 1 == format.size()) {
            message += format[i];
            continue;
        }
        if (format[i + 1] == '%') {
            message += '%';
            ++i;
            continue;
        }
        std::string_view privacy;
        std::size_t specifier = i + 1;
        if (format[specifier] == '{') {
            const auto close = format.find('}', specifier);
            if (close == std::string_view::npos) {
                message += format.substr(i);
                break;
            }
            privacy = format.substr(specifier + 1, close - specifier - 1);
            specifier = close + 1;
        }
        // Length modifiers, as in %ld, change nothing here: the argument is text already.
        while (specifier < format.size() &&
               std::string_view("hlqjzt").find(format[specifier]) != std::string_view::npos) {
            ++specifier;
        }
        if (specifier >= format.size() ||
            std::string_view("sdiu").find(format[specifier]) == std::string_view::npos) {
            message += format[i];
            continue;
        }
        // Numbers are public unless marked otherwise, strings private, as the platform has it.
        const bool isNumber = format[specifier] != 's';
        const std::string value = argument();
        if (privacy.starts_with("public") || (isNumber && privacy.empty())) {
            message += value;
        } else if (privacy.find("mask.hash") != std::string_view::npos) {
            message += maskHash(value);
        } else {
            message += "<private>";
        }
        i = specifier;
    }
    return message;
}

void Logger::log(LogLevel level, std::string_view format,
                 const std::vector<std::string>& arguments) const {
    LogRecord record{category_, level, formatLogMessage(format, arguments)};
    std::shared_ptr<LogSink> sink;
    {
        std::lock_guard lock(sinkMutex);
        sink = currentSink();
    }
    if (sink) sink->write(record);
}

}  // namespace quillstow
