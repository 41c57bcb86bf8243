#include "views/InfoWindows.hpp"

#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>

#include "shell/views/FlowWidgets.hpp"
#include "viewmodels/Texts.hpp"
#include "views/Icons.hpp"

namespace quillstow::shell {

using namespace flow;

namespace {

QLabel* centred(QLabel* label) {
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    return label;
}

// One topic: icon, title and subtitle; a click opens its explanation under the subtitle.
QWidget* topicRow(const texts::LearnTopic& topic) {
    QLabel* explanation = wrapped(topic.explanation, "explanation");
    explanation->hide();
    auto* row =
        new ActivatableFrame([explanation] { explanation->setVisible(!explanation->isVisible()); });
    row->setObjectName("row");
    row->setAccessibleName(topic.title);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addWidget(iconLabel(symbol(std::string(topic.icon)), 24), 0, Qt::AlignTop);
    auto* words = new QVBoxLayout;
    words->setSpacing(1);
    words->addWidget(bold(wrapped(topic.title, "title")));
    words->addWidget(secondary(wrapped(topic.subtitle, "subtitle")));
    words->addWidget(explanation);
    layout->addLayout(words, 1);
    return row;
}

}  // namespace

QWidget* makeAboutWindow(const QString& version) {
    auto* window = new QWidget;
    window->setObjectName("aboutWindow");
    window->setWindowTitle(texts::aboutTitle);
    window->resize(300, 240);
    auto* layout = new QVBoxLayout(window);
    ensureIconResources();
    auto* logo = new QLabel(window);
    logo->setObjectName("logo");
    // Drawn from the vector at the size shown, so it stays sharp on any scale.
    logo->setPixmap(QIcon(":/icons/io.quillstow.Quillstow.svg").pixmap(100, 100));
    logo->setAlignment(Qt::AlignCenter);
    layout->addWidget(logo);
    layout->addWidget(centred(bold(new QLabel(texts::applicationName), 1.3)));
    auto* versionLine =
        centred(new QLabel(QString::fromStdString(texts::versionLine(version.toStdString()))));
    versionLine->setObjectName("version");
    layout->addWidget(versionLine);
    layout->addWidget(centred(secondary(new QLabel(texts::aboutTagline))));
    return window;
}

QWidget* makeLearnWindow() {
    auto* window = new QWidget;
    window->setObjectName("learnWindow");
    window->setWindowTitle(texts::learnTitle);
    window->resize(400, 520);
    window->setStyleSheet(sheetStyle);
    auto* layout = new QVBoxLayout(window);
    layout->addWidget(centred(bold(new QLabel(texts::learnHeading), 1.2)));
    layout->addWidget(centred(secondary(new QLabel(texts::learnHint))));
    auto* scroll = new QScrollArea(window);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* topics = new QWidget(scroll);
    auto* topicsLayout = new QVBoxLayout(topics);
    topicsLayout->setSpacing(2);
    for (int i = 0; i < texts::learnTopicCount; ++i)
        topicsLayout->addWidget(topicRow(texts::learnTopics()[i]));
    topicsLayout->addStretch(1);
    scroll->setWidget(topics);
    layout->addWidget(scroll, 1);
    return window;
}

}  // namespace quillstow::shell
