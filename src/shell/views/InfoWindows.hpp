#pragma once

// The two small informational windows: About (name, version) and How Quillstow Works (the
// nine protections, each opening to its explanation on a click, all closed on every opening).
//
// Main thread only.

#include <QWidget>

namespace quillstow::shell {

// 300 by 240, titled "About Quillstow".
QWidget* makeAboutWindow(const QString& version);
// 400 by 520, titled "How Quillstow Works".
QWidget* makeLearnWindow();

}  // namespace quillstow::shell
