#include "tray/WorkspaceWatch.hpp"

#include <xcb/xcb.h>

#include <QGuiApplication>
#include <cstdlib>
#include <cstring>

namespace quillstow::shell {

namespace {

constexpr const char* currentDesktop = "_NET_CURRENT_DESKTOP";

xcb_atom_t atomNamed(xcb_connection_t* connection, const char* name) {
    const auto cookie =
        xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    if (!reply) return XCB_ATOM_NONE;
    const xcb_atom_t atom = reply->atom;
    std::free(reply);
    return atom;
}

}  // namespace

WorkspaceWatch::WorkspaceWatch(QObject* parent) : QObject(parent) {
    const auto* x11 =
        qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection()) return;
    currentDesktopAtom_ = atomNamed(x11->connection(), currentDesktop);
    if (currentDesktopAtom_ != XCB_ATOM_NONE) qGuiApp->installNativeEventFilter(this);
}

WorkspaceWatch::~WorkspaceWatch() {
    if (qGuiApp) qGuiApp->removeNativeEventFilter(this);
}

bool WorkspaceWatch::isWorkspaceSwitch(const void* xcbEvent, std::uint32_t currentDesktopAtom) {
    const auto* event = static_cast<const xcb_generic_event_t*>(xcbEvent);
    // The high bit marks an event sent by another client, as a window manager may.
    if (!event || currentDesktopAtom == XCB_ATOM_NONE ||
        (event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
        return false;
    return static_cast<const xcb_property_notify_event_t*>(xcbEvent)->atom == currentDesktopAtom;
}

bool WorkspaceWatch::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (eventType == "xcb_generic_event_t" && isWorkspaceSwitch(message, currentDesktopAtom_))
        emit switched();
    return false;  // Qt handles the event as usual
}

}  // namespace quillstow::shell
