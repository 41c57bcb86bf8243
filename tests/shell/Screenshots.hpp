#pragma once

// What the window tests share: pictures of windows for a person to look at, saved where
// QUILLSTOW_SCREENSHOTS names a folder, with what a person would notice first in them (a line of
// text or a button cut off), and the folder dialogs the windows open.

#include <QAbstractButton>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QTest>
#include <filesystem>

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

// Saves `window` as `name`.png, and fails where it shows a text cut off. Only the layout is
// brought up to date first: a task's result waiting in the queue would change the state.
inline void look(QWidget& window, const QString& name) {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    const QString folder = qEnvironmentVariable("QUILLSTOW_SCREENSHOTS");
    if (!folder.isEmpty() && QDir().mkpath(folder))
        window.grab().save(folder + "/" + name + ".png");
    const QStringList cut = cutOffTexts(window);
    QVERIFY2(cut.isEmpty(), qPrintable(name + ": cut off: " + cut.join(" | ")));
}

// Picks `folder` in the folder dialog `window` opened, as the dialog's own button does; a folder
// that isn't there leaves the dialog where it was.
inline void pickInFolderPanel(QWidget& window, const std::filesystem::path& folder) {
    auto* panel = window.findChild<QFileDialog*>("folderPanel");
    QVERIFY2(panel && panel->isVisible(), "no folder dialog is open");
    panel->setDirectory(QString::fromStdString(folder.native()));
    QCOMPARE(panel->directory().absolutePath(), QString::fromStdString(folder.native()));
    static_cast<QDialog*>(panel)->accept();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace quillstow::testing
