#pragma once

// Waits for a system tray before the tray icon is made. Qt picks its tray protocol when the
// first QSystemTrayIcon is made (or the tray asked for): made before a StatusNotifierItem host
// is up, it stays on XEmbed for the life of the process. So the session bus is asked first for
// a registered StatusNotifierItem host, for up to `patience` seconds, and only then is an
// XEmbed tray accepted. With neither, the program has no tray.
//
// Main thread only.

#include <QObject>
#include <QTimer>

namespace quillstow::shell {

class TrayHostWatch final : public QObject {
    Q_OBJECT

  public:
    static constexpr int defaultPatienceMs = 15000;

    explicit TrayHostWatch(int patienceMs = defaultPatienceMs, QObject* parent = nullptr);

    // Asks now and then every quarter second; `decided` follows exactly once.
    void start();

  signals:
    void decided(bool hasTray);

  private:
    void poll();
    static bool hasStatusNotifierHost();

    QTimer poll_;
    int remainingPolls_;
    bool isDecided_ = false;
};

}  // namespace quillstow::shell
