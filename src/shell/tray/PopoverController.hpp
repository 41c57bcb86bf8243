#pragma once

// Shows and hides the popover. Under a tray on X11 it is a frameless tool window, always on
// top, placed under the icon (or the pointer) and hidden when the focus moves to a window that
// is not its own; it is never a Qt::Popup, whose grab fights the file dialogs opened from it.
// Without a tray, and on Wayland where a client can't place its windows, it is a small normal
// window titled "Quillstow".
//
// Main thread only.

#include <QPointer>
#include <QWidget>
#include <optional>

namespace quillstow::shell {

class PopoverController final : public QObject {
    Q_OBJECT

  public:
    enum class Style { anchored, window };

    // Takes `content`, which becomes the popover window.
    PopoverController(QWidget* content, Style style, QObject* parent = nullptr);
    ~PopoverController() override;

    static Style styleForPlatform(bool hasTray);

    bool isShown() const;
    // `icon` is the tray icon's place on the screen, where the host tells it.
    void show(const std::optional<QRect>& icon);
    void hide();
    void setStyle(Style style);
    Style style() const { return style_; }
    // The tray's menu opens or closes. A tray host draws the menu itself and takes the focus
    // while it shows; that is no reason to close the popover, which stays behind the menu.
    // Once it closed, the focus either came back or went elsewhere, which closes it then.
    void setMenuShowing(bool showing);
    QWidget* window() const { return content_; }

  public slots:
    // Hides an anchored popover once the focus, after being on it, went to another window
    // that is not one of its own dialogs nor a menu of the program.
    void onFocusWindowChanged(QWindow* focused);

  private:
    void applyStyle();
    bool ownsWindow(QWindow* window) const;

    QPointer<QWidget> content_;
    Style style_;
    bool hadFocus_ = false;
    bool menuShowing_ = false;
};

}  // namespace quillstow::shell
