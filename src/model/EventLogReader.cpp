#include "model/EventLogReader.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <span>
#include <string>

#include "support/Error.hpp"

namespace quillstow {

namespace {

bool isJsonSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Splits the text of the log's list into the texts of its elements and keeps the newest. Text
// comes in chunks of any size; an element may span several.
class NewestElements {
  public:
    explicit NewestElements(std::size_t keep) : keep_(keep) {}

    void read(std::string_view chunk) {
        if (ended_) return;
        // The parser skips a byte order mark in front of the document; so does this.
        if (atStart_ && chunk.starts_with("\xEF\xBB\xBF")) chunk.remove_prefix(3);
        atStart_ = false;
        std::size_t start = 0;
        for (std::size_t i = 0; i < chunk.size(); ++i) {
            const char c = chunk[i];
            // The parser also takes a NUL byte outside a string for the end of the text, which
            // lets a file that a crash left padded with them be read.
            if (c == '\0' && !inString_) {
                ended_ = true;
                chunk = chunk.substr(0, i);
                break;
            }
            if (state_ != State::inElement) {
                if (isJsonSpace(c)) continue;
                if (!startsElement(c)) continue;
                start = i;
            }
            const Ending ending = elementStep(c);
            if (ending == Ending::continues) continue;
            const std::size_t end = ending == Ending::withThis ? i + 1 : i;
            endElement(chunk.substr(start, end - start));
            if (ending == Ending::beforeThis && !isJsonSpace(c)) startsElement(c);
        }
        if (state_ == State::inElement) current_.append(chunk.substr(start));
    }

    // The kept texts, oldest first; fails when the list never ended.
    std::deque<std::string> finish() {
        if (state_ != State::afterList) fail("the list ends before its closing bracket");
        return std::move(newest_);
    }

  private:
    enum class State { beforeList, openedList, afterComma, inElement, afterElement, afterList };
    enum class Ending { continues, withThis, beforeThis };

    [[noreturn]] static void fail(const std::string& what) {
        json::failDecoding("the log is not a list of events: " + what);
    }

    // Takes a character between elements; true when it begins one.
    bool startsElement(char c) {
        switch (state_) {
            case State::beforeList:
                if (c != '[') fail("it does not begin with \"[\"");
                state_ = State::openedList;
                return false;
            case State::afterElement:
                if (c == ',') {
                    state_ = State::afterComma;
                } else if (c == ']') {
                    state_ = State::afterList;
                } else {
                    fail("\",\" or \"]\" is missing between entries");
                }
                return false;
            case State::afterList:
                fail("there is more after its closing bracket");
            case State::openedList:
                if (c == ']') {
                    state_ = State::afterList;
                    return false;
                }
                [[fallthrough]];
            case State::afterComma:
            case State::inElement:
                if (c == ',' || c == ']' || c == '}' || c == ':') fail("an entry is missing");
                state_ = State::inElement;
                return true;
        }
        return false;
    }

    // Follows strings and brackets only; says where the element ends.
    Ending elementStep(char c) {
        if (inString_) {
            if (escaped_) {
                escaped_ = false;
            } else if (c == '\\') {
                escaped_ = true;
            } else if (c == '"') {
                inString_ = false;
                if (brackets_.empty()) return Ending::withThis;
            }
            return Ending::continues;
        }
        switch (c) {
            case '"':
                inString_ = true;
                return Ending::continues;
            case '{':
            case '[':
                brackets_.push_back(c);
                return Ending::continues;
            case '}':
            case ']':
                // A bare value ends where the list or the document's next bracket begins.
                if (brackets_.empty()) return Ending::beforeThis;
                if (brackets_.back() != (c == '}' ? '{' : '[')) fail("its brackets don't match");
                brackets_.pop_back();
                return brackets_.empty() ? Ending::withThis : Ending::continues;
            case ',':
                return brackets_.empty() ? Ending::beforeThis : Ending::continues;
            default:
                return brackets_.empty() && isJsonSpace(c) ? Ending::beforeThis : Ending::continues;
        }
    }

    void endElement(std::string_view tail) {
        state_ = State::afterElement;
        current_.append(tail);
        if (keep_ > 0) {
            std::string spare;
            // The oldest kept text lends its buffer to the next, so a long log costs no
            // allocation per entry.
            if (newest_.size() == keep_) {
                spare = std::move(newest_.front());
                newest_.pop_front();
            }
            newest_.push_back(std::move(current_));
            current_ = std::move(spare);
        }
        current_.clear();
    }

    const std::size_t keep_;
    State state_ = State::beforeList;
    bool atStart_ = true;
    bool ended_ = false;
    bool inString_ = false;
    bool escaped_ = false;
    std::string brackets_;
    std::string current_;
    std::deque<std::string> newest_;
};

std::vector<BackupEvent> decodeAll(const std::deque<std::string>& texts) {
    std::vector<BackupEvent> events;
    events.reserve(texts.size());
    for (const auto& text : texts)
        events.push_back(backupEventFromJson(json::read(text)));
    return events;
}

class ReadOnlyFile {
  public:
    explicit ReadOnlyFile(const std::filesystem::path& path)
        : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (fd_ < 0) throwPosix(errno);
    }
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;
    ~ReadOnlyFile() { ::close(fd_); }

    // Fills the buffer from where the last read ended; empty at the end of the file.
    std::string_view readInto(std::span<char> buffer) {
        for (;;) {
            const ssize_t count = ::read(fd_, buffer.data(), buffer.size());
            if (count >= 0) return {buffer.data(), std::size_t(count)};
            if (errno != EINTR) throwPosix(errno);
        }
    }

  private:
    int fd_;
};

}  // namespace

std::vector<BackupEvent> readNewestEvents(std::string_view text, std::size_t keep) {
    NewestElements elements(keep);
    elements.read(text);
    return decodeAll(elements.finish());
}

std::vector<BackupEvent> readNewestEventsFromFile(const std::filesystem::path& file,
                                                  std::size_t keep) {
    ReadOnlyFile input(file);
    NewestElements elements(keep);
    std::vector<char> buffer(1 << 16);
    for (std::string_view chunk; !(chunk = input.readInto(buffer)).empty();)
        elements.read(chunk);
    return decodeAll(elements.finish());
}

}  // namespace quillstow
