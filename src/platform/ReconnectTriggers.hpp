#pragma once

// The moments at which a lost destination may have come back, as Linux tells them over D-Bus:
// logind's PrepareForSleep(false) on the system bus (the machine woke), the screen saver's
// ActiveChanged(false) on the session bus (org.freedesktop.ScreenSaver, org.gnome.ScreenSaver:
// the screens woke), and NetworkManager's StateChanged to a connected state (the network came
// up). Where a bus or a service is missing, the trigger simply never fires.
//
// Threading: start and stop on the main thread. Each started trigger has a thread of its own
// with its own bus connection; `fire` is called on that thread, never after stop returns. The
// signals are matched before start returns, so none sent after it is missed.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "environment/VolumeReconnector.hpp"

struct sd_bus;
struct sd_bus_message;

namespace quillstow {

// A thread that listens until it is stopped: its body polls `stopSignal` beside its own
// descriptor and returns when that becomes readable.
class ListeningThread {
  public:
    ListeningThread() = default;
    ListeningThread(const ListeningThread&) = delete;
    ListeningThread& operator=(const ListeningThread&) = delete;
    ~ListeningThread() { stop(); }

    void start(std::function<void(int stopSignal)> body);
    void stop();
    bool isRunning() const { return thread_.joinable(); }

  private:
    int stopSignal_ = -1;
    std::thread thread_;
};

class DBusSignalTrigger final : public ReconnectTrigger {
  public:
    enum class Bus { system, session };
    // A signal to listen to, and whether one that came means "go".
    struct Rule {
        std::string match;
        std::function<bool(sd_bus_message*)> isGo;
    };
    // Asked once when listening begins: whether things are already as a signal would say.
    using IsGoAtStart = std::function<bool(sd_bus*)>;

    // `address` replaces the bus, for tests with a bus of their own.
    DBusSignalTrigger(Bus bus, std::vector<Rule> rules, IsGoAtStart isGoAtStart = {},
                      std::optional<std::string> address = std::nullopt);
    DBusSignalTrigger(const DBusSignalTrigger&) = delete;
    DBusSignalTrigger& operator=(const DBusSignalTrigger&) = delete;
    ~DBusSignalTrigger() override;

    void start(Fire fire) override;
    void stop() override;

  private:
    struct Listening {
        const Rule* rule;
        Fire* fire;
    };

    sd_bus* connect() const;
    void listen(sd_bus* bus, int stopSignal);

    const Bus bus_;
    const std::vector<Rule> rules_;
    const IsGoAtStart isGoAtStart_;
    const std::optional<std::string> address_;
    Fire fire_;
    std::vector<Listening> listenings_;
    ListeningThread listener_;
};

// The three triggers of a Linux desktop; `address` as above, for all three.
std::unique_ptr<DBusSignalTrigger> makeWakeTrigger(
    std::optional<std::string> address = std::nullopt);
std::unique_ptr<DBusSignalTrigger> makeScreensWakeTrigger(
    std::optional<std::string> address = std::nullopt);
std::unique_ptr<DBusSignalTrigger> makeNetworkUpTrigger(
    std::optional<std::string> address = std::nullopt);

// Where NetworkManager is absent: the kernel's route socket, firing when an interface gains an
// address, as it does when a network comes up.
class NetlinkAddressTrigger final : public ReconnectTrigger {
  public:
    NetlinkAddressTrigger() = default;
    NetlinkAddressTrigger(const NetlinkAddressTrigger&) = delete;
    NetlinkAddressTrigger& operator=(const NetlinkAddressTrigger&) = delete;
    ~NetlinkAddressTrigger() override;

    void start(Fire fire) override;
    void stop() override;

  private:
    ListeningThread listener_;
};

// NetworkManager's trigger where it runs, else the route socket's.
std::unique_ptr<ReconnectTrigger> makeNetworkTrigger();

// Whether a NetworkManager state may reach a share: connected (local, site or global), or
// unknown, which is taken as maybe.
bool isNetworkUp(std::uint32_t networkManagerState);

}  // namespace quillstow
