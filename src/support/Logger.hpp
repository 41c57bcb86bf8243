#pragma once

// The platform log. Lines carry the subsystem "io.quillstow.Quillstow", a category and a level.
// Format strings are written as they stand in the system's own list of log lines: an argument
// marked %{public}s is shown, one marked %{private}s (or a bare %s) is masked, and
// %{private,mask.hash}s shows a stable hash instead, so that equal paths can be matched without
// being read. Nothing private reaches the log in the clear.
//
// Any thread may log.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quillstow {

enum class LogLevel { info, standard, error };

struct LogRecord {
    std::string category;
    LogLevel level = LogLevel::standard;
    std::string message;  // private arguments already masked
};

// Where log lines go. The default sink writes to journald when it runs, else to standard error.
class LogSink {
  public:
    virtual ~LogSink() = default;
    virtual void write(const LogRecord& record) = 0;
};

inline constexpr const char* logSubsystem = "io.quillstow.Quillstow";

// Replaces the process-wide sink; returns the one it replaces. For the app's start and tests.
std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink);

// journald with the fields SUBSYSTEM, CATEGORY and PRIORITY; standard error where journald
// isn't running.
std::shared_ptr<LogSink> makeSystemLogSink();

// Fills a format string's %{public}s, %{private}s, %{private,mask.hash}s and %s with the
// arguments in order; %% is a percent sign.
std::string formatLogMessage(std::string_view format, const std::vector<std::string>& arguments);

class Logger {
  public:
    explicit Logger(std::string category) : category_(std::move(category)) {}

    template <typename... Arguments>
    void info(std::string_view format, const Arguments&... arguments) const {
        log(LogLevel::info, format, {toText(arguments)...});
    }
    // The level between info and error, which the platform calls "default".
    template <typename... Arguments>
    void notice(std::string_view format, const Arguments&... arguments) const {
        log(LogLevel::standard, format, {toText(arguments)...});
    }
    template <typename... Arguments>
    void error(std::string_view format, const Arguments&... arguments) const {
        log(LogLevel::error, format, {toText(arguments)...});
    }

    const std::string& category() const { return category_; }

  private:
    static std::string toText(const std::string& text) { return text; }
    static std::string toText(std::string_view text) { return std::string(text); }
    static std::string toText(const char* text) { return text; }
    template <typename Number>
    static std::string toText(Number number) {
        return std::to_string(number);
    }

    void log(LogLevel level, std::string_view format,
             const std::vector<std::string>& arguments) const;

    std::string category_;
};

}  // namespace quillstow
