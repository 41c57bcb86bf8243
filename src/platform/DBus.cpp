#include "platform/DBus.hpp"

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <cstring>

namespace quillstow {

namespace {

constexpr std::uint64_t callTimeoutMicroseconds = 250'000;

// Frees an sd-bus error on every path out.
struct ErrorGuard {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    ~ErrorGuard() { sd_bus_error_free(&error); }
};

}  // namespace

std::unique_ptr<DBusConnection> DBusConnection::open(Bus bus) {
    sd_bus* connection = nullptr;
    const int result =
        bus == Bus::system ? sd_bus_open_system(&connection) : sd_bus_open_user(&connection);
    if (result < 0 || !connection) return nullptr;
    sd_bus_set_method_call_timeout(connection, callTimeoutMicroseconds);
    return std::unique_ptr<DBusConnection>(new DBusConnection(connection));
}

std::unique_ptr<DBusConnection> DBusConnection::openAddress(const std::string& address) {
    sd_bus* connection = nullptr;
    if (sd_bus_new(&connection) < 0) return nullptr;
    if (sd_bus_set_address(connection, address.c_str()) < 0 ||
        sd_bus_set_bus_client(connection, 1) < 0 || sd_bus_start(connection) < 0) {
        sd_bus_unref(connection);
        return nullptr;
    }
    sd_bus_set_method_call_timeout(connection, callTimeoutMicroseconds);
    return std::unique_ptr<DBusConnection>(new DBusConnection(connection));
}

DBusConnection::DBusConnection(sd_bus* bus) : bus_(bus) {}

DBusConnection::~DBusConnection() {
    sd_bus_flush_close_unref(bus_);
}

template <typename Value>
std::optional<Value> DBusConnection::trivialProperty(const Target& target, const char* name,
                                                     char type) {
    std::lock_guard lock(mutex_);
    ErrorGuard guard;
    Value value{};
    if (sd_bus_get_property_trivial(bus_, target.service, target.path, target.interface, name,
                                    &guard.error, type, &value) < 0) {
        return std::nullopt;
    }
    return value;
}

std::optional<bool> DBusConnection::boolProperty(const Target& target, const char* name) {
    // sd-bus hands a boolean over as an int.
    const auto value = trivialProperty<int>(target, name, 'b');
    if (!value) return std::nullopt;
    return *value != 0;
}

std::optional<double> DBusConnection::doubleProperty(const Target& target, const char* name) {
    return trivialProperty<double>(target, name, 'd');
}

std::optional<std::uint32_t> DBusConnection::uint32Property(const Target& target,
                                                            const char* name) {
    return trivialProperty<std::uint32_t>(target, name, 'u');
}

std::optional<std::string> DBusConnection::stringProperty(const Target& target, const char* name) {
    std::lock_guard lock(mutex_);
    ErrorGuard guard;
    char* value = nullptr;
    if (sd_bus_get_property_string(bus_, target.service, target.path, target.interface, name,
                                   &guard.error, &value) < 0) {
        return std::nullopt;
    }
    std::string text = value ? value : "";
    std::free(value);
    return text;
}

std::optional<std::string> DBusConnection::call(const Target& target, const char* method,
                                                const MessageStep& append,
                                                const MessageStep& read) {
    std::lock_guard lock(mutex_);
    ErrorGuard guard;
    sd_bus_message* message = nullptr;
    int result = sd_bus_message_new_method_call(bus_, &message, target.service, target.path,
                                                target.interface, method);
    if (result >= 0) result = append(message);
    sd_bus_message* reply = nullptr;
    if (result >= 0) result = sd_bus_call(bus_, message, 0, &guard.error, &reply);
    sd_bus_message_unref(message);
    if (result >= 0) result = read(reply);
    sd_bus_message_unref(reply);
    if (result >= 0) return std::nullopt;
    if (guard.error.message) return std::string(guard.error.message);
    return std::string(std::strerror(-result));
}

template <typename Value>
std::optional<Value> DBusConnection::callForNumber(const Target& target, const char* method,
                                                   const char* type) {
    std::lock_guard lock(mutex_);
    ErrorGuard guard;
    sd_bus_message* reply = nullptr;
    if (sd_bus_call_method(bus_, target.service, target.path, target.interface, method,
                           &guard.error, &reply, "") < 0) {
        return std::nullopt;
    }
    Value value{};
    const int read = sd_bus_message_read(reply, type, &value);
    sd_bus_message_unref(reply);
    if (read <= 0) return std::nullopt;
    return value;
}

std::optional<std::uint64_t> DBusConnection::callForUint64(const Target& target,
                                                           const char* method) {
    return callForNumber<std::uint64_t>(target, method, "t");
}

std::optional<std::uint32_t> DBusConnection::callForUint32(const Target& target,
                                                           const char* method) {
    return callForNumber<std::uint32_t>(target, method, "u");
}

}  // namespace quillstow
