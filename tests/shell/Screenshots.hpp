#pragma once

// Pictures of windows for a person to look at, where QUILLSTOW_SCREENSHOTS names a folder, and
// what a person would notice first in them: a line of text or a button cut off.

#include <QAbstractButton>
#include <QCoreApplication>
#include <QDir>
#include <QLabel>
#include <QWidget>

namespace quillstow::testing {

// The texts of `window` narrower than they need. Wrapped labels, paths that elide in the middle
// (their tooltip holds them whole) and buttons of an icon alone fit by design.
inline QStringList cutOffTexts(QWidget& window) {
    QStringList cut;
    for (auto* label : window.findChildren<QLabel*>()) {
        if (!label->isVisible() || label->wordWrap() || label->property("elides").toBool() ||
            label->text().isEmpty())
            continue;
        if (label->sizeHint().width() > label->width()) cut << label->text();
    }
    for (auto* button : window.findChildren<QAbstractButton*>())
        if (button->isVisible() && !button->text().isEmpty() &&
            button->sizeHint().width() > button->width())
            cut << button->text();
    return cut;
}

// Saves `widget` and returns what it shows cut off. Only the layout is brought up to date
// first: a task's result waiting in the queue would change the state being looked at.
inline QStringList saveShot(QWidget& widget, const QString& name) {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    const QString folder = qEnvironmentVariable("QUILLSTOW_SCREENSHOTS");
    if (!folder.isEmpty() && QDir().mkpath(folder)) widget.grab().save(folder + "/" + name);
    return cutOffTexts(widget);
}

}  // namespace quillstow::testing
