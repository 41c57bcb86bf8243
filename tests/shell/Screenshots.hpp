#pragma once

// Pictures of windows for a person to look at, where QUILLSTOW_SCREENSHOTS names a folder.

#include <QCoreApplication>
#include <QDir>
#include <QWidget>

namespace quillstow::testing {

// Lets the events run first: rows added to a shown layout appear only then.
inline void saveShot(QWidget& widget, const QString& name) {
    const QString folder = qEnvironmentVariable("QUILLSTOW_SCREENSHOTS");
    if (folder.isEmpty()) return;
    QDir().mkpath(folder);
    QCoreApplication::processEvents();
    widget.grab().save(folder + "/" + name);
}

}  // namespace quillstow::testing
