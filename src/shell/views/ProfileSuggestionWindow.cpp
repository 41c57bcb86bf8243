#include "shell/views/ProfileSuggestionWindow.hpp"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

#include "shell/views/FlowWidgets.hpp"
#include "support/ByteCount.hpp"

namespace quillstow::shell {

using namespace flow;
namespace words = SmartSetupTexts;

namespace {

QWidget* linesBox(const std::vector<std::string>& lines, const char* name, bool asBullets) {
    auto* box = new QWidget;
    box->setObjectName(name);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(18, 0, 0, 0);
    layout->setSpacing(2);
    for (const std::string& line : lines) {
        auto* label = wrapped(text(asBullets ? "• " + line : line));
        if (!asBullets) secondary(label);
        layout->addWidget(label);
    }
    return box;
}

}  // namespace

ProfileSuggestionWindow::ProfileSuggestionWindow(const ProfileSuggestion& suggestion,
                                                 std::function<void()> onAccept, QWidget* parent)
    : QWidget(parent, Qt::Window), suggestion_(suggestion), onAccept_(std::move(onAccept)) {
    setObjectName("smartSetupWindow");
    setWindowTitle(words::windowTitle);
    resize(width, height);
    const ProfileOffer offer = offerOf(suggestion.recommended, suggestion.pairName);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 16, 20, 16);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* page = new QWidget;
    auto* content = new QVBoxLayout(page);
    content->setContentsMargins(0, 0, 0, 0);
    content->addWidget(iconLabel(symbol(offer.icon), 36), 0, Qt::AlignHCenter);
    auto* title = bold(wrapped(text(offer.title), "title"), 1.25);
    title->setAlignment(Qt::AlignCenter);
    content->addWidget(title);
    auto* pair = secondary(wrapped(
        text(suggestion.pairName + " · " + formatByteCount(suggestion.approximateBytes)), "pair"));
    pair->setAlignment(Qt::AlignCenter);
    content->addWidget(pair);
    auto* description = wrapped(text(offer.description), "description");
    description->setAlignment(Qt::AlignCenter);
    content->addWidget(description);
    content->addSpacing(6);
    content->addWidget(makeDetails());
    content->addStretch(1);
    scroll->setWidget(page);
    layout->addWidget(scroll, 1);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    decline_ = new QPushButton(words::useDefaults);
    accept_ = new QPushButton(words::setItUp);
    accept_->setDefault(true);
    buttons->addWidget(decline_);
    buttons->addWidget(accept_);
    layout->addLayout(buttons);
    connect(decline_, &QPushButton::clicked, this, &QWidget::close);
    connect(accept_, &QPushButton::clicked, this, [this] {
        // Answered once: the close that follows declines nothing.
        if (auto accept = std::exchange(onAccept_, nullptr)) accept();
        close();
    });
}

QWidget* ProfileSuggestionWindow::makeDetails() {
    auto* details = new QWidget;
    auto* layout = new QVBoxLayout(details);
    layout->setContentsMargins(0, 0, 0, 0);
    whatThisChanges_ = new QToolButton;
    whatThisChanges_->setObjectName("whatThisChanges");
    whatThisChanges_->setText(words::whatThisChanges);
    whatThisChanges_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    whatThisChanges_->setAutoRaise(true);
    whatThisChanges_->setCheckable(true);
    whatThisChanges_->setIcon(symbol("chevron.right", "go-next", QStyle::SP_ArrowRight));
    layout->addWidget(whatThisChanges_, 0, Qt::AlignLeft);

    const ProfileOffer offer = offerOf(suggestion_.recommended, suggestion_.pairName);
    bullets_ = linesBox(offer.bullets, "bullets", true);
    bullets_->hide();
    layout->addWidget(bullets_);
    technicalToggle_ = new QPushButton(words::showTechnicalDetails);
    technicalToggle_->setObjectName("technicalToggle");
    technicalToggle_->setFlat(true);
    technicalToggle_->hide();
    layout->addWidget(technicalToggle_, 0, Qt::AlignLeft);
    technical_ = linesBox(technicalLinesOf(suggestion_.recommended), "technical", false);
    technical_->hide();
    layout->addWidget(technical_);

    connect(whatThisChanges_, &QToolButton::toggled, this, [this](bool open) {
        whatThisChanges_->setIcon(open ? symbol("chevron.down", "go-down", QStyle::SP_ArrowDown)
                                       : symbol("chevron.right", "go-next", QStyle::SP_ArrowRight));
        bullets_->setVisible(open);
        technicalToggle_->setVisible(open);
        technical_->setVisible(open && technicalToggle_->text() == words::hideTechnicalDetails);
    });
    connect(technicalToggle_, &QPushButton::clicked, this, [this] {
        const bool open = !technical_->isVisible();
        technical_->setVisible(open);
        technicalToggle_->setText(open ? words::hideTechnicalDetails : words::showTechnicalDetails);
    });
    return details;
}

void ProfileSuggestionWindow::closeEvent(QCloseEvent* event) {
    // Declining leaves the pair as it is: nothing to do but let the window go.
    onAccept_ = nullptr;
    QWidget::closeEvent(event);
}

}  // namespace quillstow::shell
