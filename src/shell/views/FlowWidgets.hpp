#pragma once

// The pieces the folder-picking windows share (the add-backup sheet and the welcome flow): the
// words of a path, our icons by symbol name, labels that wrap or elide, rows to pick from, the
// drop zone for folders, and the folder dialog.
//
// Main thread only.

#include <QFrame>
#include <QIcon>
#include <QLabel>
#include <QStyle>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class QMimeData;
class QVBoxLayout;

namespace quillstow::shell::flow {

QString text(const std::string& words);
QString text(const char* words);
// A path as the user reads it, and back.
QString shown(const std::filesystem::path& path);
std::filesystem::path pathOf(const QString& local);
// A tooltip that shows a folder's name as it is: Qt would read "<b>" in it as markup.
QString plainToolTip(const QString& words);

// Our own icon named after the symbol, else the desktop theme's `themeName`, else Qt's own.
QIcon symbol(const char* name, const char* themeName, QStyle::StandardPixmap standard);
// The same, for the symbols of the learn topics and the profiles, whose fallbacks are known.
QIcon symbol(const std::string& name);
QLabel* iconLabel(const QIcon& icon, int size);
// Plain text, wrapped: folder names are never read as markup.
QLabel* wrapped(const QString& words, const char* name = nullptr);
// Smaller and dimmer.
QLabel* secondary(QLabel* label);
QLabel* bold(QLabel* label, double scale = 1.0);
QWidget* iconLine(const QIcon& icon, QLabel* words);
QVBoxLayout* pageLayout(QWidget* page);
QLabel* question(const char* words);

// The look of rows, the drop zone and the summary box.
extern const char* const sheetStyle;

// One line that shows as much of a long text as fits, the rest as "…", and all of it as a
// tooltip: paths are often longer than the window is wide.
class ElidedLabel final : public QLabel {
  public:
    explicit ElidedLabel(QString full, Qt::TextElideMode mode = Qt::ElideMiddle);
    const QString& fullText() const { return full_; }

  protected:
    void resizeEvent(QResizeEvent* event) override;

  private:
    QString full_;
    Qt::TextElideMode mode_;
};

// A frame that acts as a button: a click, Space or Enter activates it.
class ActivatableFrame : public QFrame {
  public:
    explicit ActivatableFrame(std::function<void()> onActivate);

  protected:
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    std::function<void()> onActivate_;
};

// A row of a list to pick from: icon, a title, a detail under it, an optional text at the
// row's end (a volume's free space), and an optional mark.
class ClickableRow final : public ActivatableFrame {
  public:
    ClickableRow(const QIcon& icon, const QString& title, const QString& detail,
                 std::function<void()> onSelect, const QIcon& mark = {}, const QString& aside = {});
};

// Takes folders dropped as file URLs; activated, it opens the folder dialog.
class DropZone final : public ActivatableFrame {
  public:
    struct Words {
        const char* label;
        const char* accessibleName;
        const char* accessibleHint;
    };
    DropZone(const Words& words, std::function<void(std::vector<std::filesystem::path>)> onDrop,
             std::function<void()> onActivate);

    // The local files of a drag, in its order.
    static std::vector<std::filesystem::path> localFiles(const QMimeData* data);

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    void setTargeted(bool targeted);

    std::function<void(std::vector<std::filesystem::path>)> onDrop_;
};

// The folder dialog, the desktop's own where Qt's platform theme has one: folders only, one or
// several, starting at `startAt`; `onPicked` gets what was chosen.
void openFolderPanel(QWidget* parent, const char* prompt, const char* message,
                     const std::optional<std::filesystem::path>& startAt, bool several,
                     std::function<void(const std::vector<std::filesystem::path>&)> onPicked);

}  // namespace quillstow::shell::flow
