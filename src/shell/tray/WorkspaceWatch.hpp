#pragma once

// Tells when the user switches to another workspace (virtual desktop), so that the popover
// closes, as it does when the screen locks. On X11 the window manager says so by changing
// _NET_CURRENT_DESKTOP on the root window, whose property changes Qt already receives; the
// watch reads them from Qt's event stream. Elsewhere it stays silent: on Wayland the popover is
// a normal window, which stays on its workspace like any other.
//
// Main thread only.

#include <QAbstractNativeEventFilter>
#include <QObject>
#include <cstdint>

namespace quillstow::shell {

class WorkspaceWatch final : public QObject, public QAbstractNativeEventFilter {
    Q_OBJECT

  public:
    explicit WorkspaceWatch(QObject* parent = nullptr);
    ~WorkspaceWatch() override;

    // Whether an X11 event (an xcb_generic_event_t) is a change of the root window's property
    // `currentDesktopAtom`, _NET_CURRENT_DESKTOP.
    static bool isWorkspaceSwitch(const void* xcbEvent, std::uint32_t currentDesktopAtom);

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

  signals:
    void switched();

  private:
    std::uint32_t currentDesktopAtom_ = 0;
};

}  // namespace quillstow::shell
