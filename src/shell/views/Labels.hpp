#pragma once

// The labels the windows share: words that wrap, the dimmed small print under them, and one
// line that shows as much of a long path as fits. Every one shows its text as it is: a folder
// called "<b>" is never read as markup. Header only, so each window's library can use it.
//
// Main thread only.

#include <QLabel>
#include <QResizeEvent>

namespace quillstow::shell {

// A tooltip that shows words as they are: Qt would read "<b>" in one as markup.
inline QString plainToolTip(const QString& words) {
    return "<p style=\"white-space:pre-wrap\">" + words.toHtmlEscaped() + "</p>";
}

inline QLabel* wrapped(const QString& words = {}, const char* name = nullptr) {
    auto* label = new QLabel(words);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    if (name) label->setObjectName(name);
    return label;
}

// The small print: a size smaller, in the theme's faint text colour.
template <typename Label>
Label* dimmed(Label* label) {
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.9);
    label->setFont(font);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

// One line that shows as much of a long text as fits, the rest as "…", and all of it as a
// tooltip and as the property "fullText": paths are often longer than a window is wide.
class ElidedLabel final : public QLabel {
  public:
    explicit ElidedLabel(QString full = {}, Qt::TextElideMode mode = Qt::ElideMiddle)
        : mode_(mode) {
        setTextFormat(Qt::PlainText);
        setProperty("elides", true);
        setMinimumWidth(1);
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        setFullText(std::move(full));
    }
    void setFullText(QString full) {
        full_ = std::move(full);
        setProperty("fullText", full_);
        setToolTip(full_.isEmpty() ? QString() : plainToolTip(full_));
        elide();
    }
    const QString& fullText() const { return full_; }

  protected:
    void resizeEvent(QResizeEvent* event) override {
        QLabel::resizeEvent(event);
        elide();
    }

  private:
    void elide() {
        const int room = contentsRect().width();
        setText(room > 1 ? fontMetrics().elidedText(full_, mode_, room) : full_);
    }

    QString full_;
    Qt::TextElideMode mode_;
};

}  // namespace quillstow::shell
