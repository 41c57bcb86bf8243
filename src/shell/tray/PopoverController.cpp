#include "tray/PopoverController.hpp"

#include <QApplication>
#include <QCursor>
#include <QScreen>
#include <QTimer>
#include <QWindow>

#include "tray/PopoverPlacement.hpp"
#include "viewmodels/Texts.hpp"

namespace quillstow::shell {

PopoverController::PopoverController(QWidget* content, Style style, QObject* parent)
    : QObject(parent), content_(content), style_(style) {
    content_->setWindowTitle(texts::applicationName);
    applyStyle();
    connect(qApp, &QGuiApplication::focusWindowChanged, this,
            &PopoverController::onFocusWindowChanged);
}

PopoverController::~PopoverController() {
    delete content_.data();
}

PopoverController::Style PopoverController::styleForPlatform(bool hasTray) {
    if (!hasTray || QGuiApplication::platformName().startsWith("wayland")) return Style::window;
    return Style::anchored;
}

void PopoverController::setStyle(Style style) {
    if (style == style_) return;
    style_ = style;
    const bool wasShown = isShown();
    applyStyle();
    if (wasShown) content_->show();
}

void PopoverController::applyStyle() {
    if (style_ == Style::anchored)
        content_->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    else
        content_->setWindowFlags(Qt::Window);
}

bool PopoverController::isShown() const {
    return content_ && content_->isVisible();
}

void PopoverController::show(const std::optional<QRect>& icon) {
    if (!content_) return;
    hadFocus_ = false;
    if (style_ == Style::anchored) {
        const QPoint cursor = QCursor::pos();
        QScreen* screen = QGuiApplication::screenAt(icon ? icon->center() : cursor);
        if (!screen) screen = QGuiApplication::primaryScreen();
        if (screen) {
            content_->move(
                placePopover(icon, cursor, content_->size(), screen->availableGeometry()));
        }
    }
    content_->show();
    content_->raise();
    content_->activateWindow();
}

void PopoverController::hide() {
    if (content_) content_->hide();
}

void PopoverController::setMenuShowing(bool showing) {
    menuShowing_ = showing;
    if (showing) return;
    // The focus comes back from the host's grab a moment after the menu says it closed.
    constexpr int focusReturnMs = 300;
    QTimer::singleShot(focusReturnMs, this,
                       [this] { onFocusWindowChanged(QGuiApplication::focusWindow()); });
}

bool PopoverController::ownsWindow(QWindow* window) const {
    for (QWindow* w = window; w; w = w->transientParent())
        if (content_ && w == content_->windowHandle()) return true;
    return false;
}

void PopoverController::onFocusWindowChanged(QWindow* focused) {
    if (style_ != Style::anchored || !isShown()) return;
    if (ownsWindow(focused)) {
        hadFocus_ = true;
        return;
    }
    // While one of its dialogs is open the focus is there, not gone; the tray's menu, opened
    // by a right click, shows in front of the popover, which stays.
    if (menuShowing_ || QApplication::activeModalWidget() || QApplication::activePopupWidget())
        return;
    if (hadFocus_) hide();
}

}  // namespace quillstow::shell
