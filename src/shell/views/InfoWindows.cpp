#include "views/InfoWindows.hpp"

#include <QLabel>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

#include "viewmodels/Texts.hpp"
#include "views/Icons.hpp"

namespace quillstow::shell {

namespace {

QLabel* centred(const QString& text, QWidget* parent, double scale = 1.0, bool bold = false) {
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setBold(bold);
    label->setFont(font);
    return label;
}

QWidget* topicRow(const texts::LearnTopic& topic, QWidget* parent) {
    auto* row = new QWidget(parent);
    auto* layout = new QVBoxLayout(row);
    layout->setContentsMargins(4, 4, 4, 4);
    auto* button = new QToolButton(row);
    button->setText(QString("%1\n%2").arg(topic.title, topic.subtitle));
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setAutoRaise(true);
    button->setCheckable(true);
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    button->setStyleSheet("text-align: left;");
    auto* explanation = new QLabel(topic.explanation, row);
    explanation->setWordWrap(true);
    explanation->hide();
    QObject::connect(button, &QToolButton::toggled, explanation, &QLabel::setVisible);
    layout->addWidget(button);
    layout->addWidget(explanation);
    return row;
}

}  // namespace

QWidget* makeAboutWindow(const QString& version) {
    auto* window = new QWidget;
    window->setWindowTitle(texts::aboutTitle);
    window->resize(300, 240);
    auto* layout = new QVBoxLayout(window);
    auto* logo = new QLabel(window);
    logo->setPixmap(QIcon(":/icons/io.quillstow.Quillstow.svg").pixmap(100, 100));
    logo->setAlignment(Qt::AlignCenter);
    layout->addWidget(logo);
    layout->addWidget(centred(texts::applicationName, window, 1.3, true));
    layout->addWidget(
        centred(QString::fromStdString(texts::versionLine(version.toStdString())), window));
    layout->addWidget(centred(texts::aboutTagline, window, 0.9));
    return window;
}

QWidget* makeLearnWindow() {
    auto* window = new QWidget;
    window->setWindowTitle(texts::learnTitle);
    window->resize(400, 520);
    auto* layout = new QVBoxLayout(window);
    layout->addWidget(centred(texts::learnHeading, window, 1.2, true));
    layout->addWidget(centred(texts::learnHint, window, 0.9));
    auto* scroll = new QScrollArea(window);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* topics = new QWidget(scroll);
    auto* topicsLayout = new QVBoxLayout(topics);
    for (int i = 0; i < texts::learnTopicCount; ++i)
        topicsLayout->addWidget(topicRow(texts::learnTopics()[i], topics));
    topicsLayout->addStretch(1);
    scroll->setWidget(topics);
    layout->addWidget(scroll, 1);
    return window;
}

}  // namespace quillstow::shell
