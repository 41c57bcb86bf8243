#pragma once

// A small, blocking D-Bus client over sd-bus for the few readings the gates need. Calls time
// out after a quarter of a second, so a hung service never holds a copy loop; every failure is
// simply no answer. Any thread may call; calls are serialised on the connection.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

struct sd_bus;
struct sd_bus_message;

namespace quillstow {

class DBusConnection {
  public:
    enum class Bus { system, session };

    // Nothing when the bus is not there.
    static std::unique_ptr<DBusConnection> open(Bus bus);
    static std::unique_ptr<DBusConnection> openAddress(const std::string& address);

    DBusConnection(const DBusConnection&) = delete;
    DBusConnection& operator=(const DBusConnection&) = delete;
    ~DBusConnection();

    struct Target {
        const char* service;
        const char* path;
        const char* interface;
    };

    std::optional<bool> boolProperty(const Target& target, const char* name);
    std::optional<double> doubleProperty(const Target& target, const char* name);
    std::optional<std::uint32_t> uint32Property(const Target& target, const char* name);
    std::optional<std::string> stringProperty(const Target& target, const char* name);

    // A method call whose arguments `append` adds to the message and whose reply `read` takes
    // apart (each answering a negative errno on failure, as sd-bus does). Nothing on success,
    // else the error's text.
    using MessageStep = std::function<int(sd_bus_message*)>;
    std::optional<std::string> call(const Target& target, const char* method,
                                    const MessageStep& append, const MessageStep& read);

    // A method without arguments that answers one number.
    std::optional<std::uint64_t> callForUint64(const Target& target, const char* method);
    std::optional<std::uint32_t> callForUint32(const Target& target, const char* method);

  private:
    explicit DBusConnection(sd_bus* bus);

    template <typename Value>
    std::optional<Value> trivialProperty(const Target& target, const char* name, char type);
    template <typename Value>
    std::optional<Value> callForNumber(const Target& target, const char* method, const char* type);

    sd_bus* bus_;
    std::mutex mutex_;
};

}  // namespace quillstow
