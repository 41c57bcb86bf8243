#include "views/PairRowView.hpp"

#include <QHBoxLayout>
#include <QMenu>
#include <QPainter>
#include <QVBoxLayout>
#include <QVariantAnimation>

#include "viewmodels/Texts.hpp"
#include "views/Icons.hpp"

namespace quillstow::shell {

namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

constexpr int glyphSize = 12;

QFont smallFont(const QFont& font) {
    QFont small = font;
    small.setPointSizeF(font.pointSizeF() * 0.85);
    return small;
}

QLabel* smallLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setFont(smallFont(label->font()));
    label->setWordWrap(true);
    return label;
}

}  // namespace

// A ring that grows and fades while its pair works.
class PulsingRing final : public QWidget {
  public:
    explicit PulsingRing(QWidget* parent) : QWidget(parent) {
        setFixedSize(12, 12);
        animation_.setStartValue(0.0);
        animation_.setEndValue(1.0);
        animation_.setDuration(1200);
        animation_.setLoopCount(-1);
        connect(&animation_, &QVariantAnimation::valueChanged, this, [this] { update(); });
    }
    void setRunning(bool running) {
        setVisible(running);
        if (running && animation_.state() != QAbstractAnimation::Running) animation_.start();
        if (!running) animation_.stop();
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        const double phase = animation_.currentValue().toDouble();
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QColor colour = palette().color(QPalette::Highlight);
        painter.setBrush(colour);
        painter.setPen(Qt::NoPen);
        painter.drawEllipse(QPointF(6, 6), 2.5, 2.5);
        colour.setAlphaF(1.0 - phase);
        painter.setPen(QPen(colour, 1.2));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(QPointF(6, 6), 2.5 + 3 * phase, 2.5 + 3 * phase);
    }

  private:
    QVariantAnimation animation_;
};

QWidget* PairRowView::iconLine(const std::string& symbol, QLabel*& text) {
    auto* line = new QWidget(this);
    auto* layout = new QHBoxLayout(line);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    auto* icon = new QLabel(line);
    icon->setPixmap(glyphIcon(symbol).pixmap(glyphSize, glyphSize));
    icon->setAlignment(Qt::AlignTop);
    layout->addWidget(icon);
    text = smallLabel(line);
    layout->addWidget(text, 1);
    return line;
}

PairRowView::PairRowView(const PairRowState& state, bool reducedMotion, QWidget* parent)
    : QWidget(parent) {
    setObjectName("pairRow");
    setContextMenuPolicy(Qt::CustomContextMenu);
    connect(this, &QWidget::customContextMenuRequested, this, &PairRowView::showContextMenu);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 6, 10, 6);
    layout->setSpacing(2);

    auto* top = new QHBoxLayout;
    ring_ = new PulsingRing(this);
    if (reducedMotion) ring_->setRunning(false);
    name_ = new QLabel(this);
    QFont bold = name_->font();
    bold.setBold(true);
    name_->setFont(bold);
    top->addWidget(ring_);
    top->addWidget(name_, 1);
    backUpNow_ = new QToolButton(this);
    backUpNow_->setText(texts::backUpNow);
    backUpNow_->setToolTip(texts::backUpNow);
    backUpNow_->setAutoRaise(true);
    backUpNow_->hide();
    connect(backUpNow_, &QToolButton::clicked, this,
            [this] { emit backUpNowRequested(state_.id); });
    top->addWidget(backUpNow_);
    layout->addLayout(top);

    auto* statusLine = new QHBoxLayout;
    status_ = new QToolButton(this);
    status_->setObjectName("status");
    // Flush with the lines under it: a text that is also a button.
    status_->setStyleSheet("QToolButton { border: none; padding: 0; }");
    status_->setAutoRaise(true);
    status_->setFont(smallFont(status_->font()));
    connect(status_, &QToolButton::clicked, this, &PairRowView::toggleErrorDetail);
    statusLine->addWidget(status_);
    statusLine->addStretch(1);
    relink_ = new QToolButton(this);
    relink_->setText(texts::relink);
    connect(relink_, &QToolButton::clicked, this, [this] { emit relinkRequested(state_.id); });
    statusLine->addWidget(relink_);
    layout->addLayout(statusLine);

    destination_ = smallLabel(this);
    layout->addWidget(destination_);
    freeSpace_ = iconLine("externaldrive.badge.exclamationmark", freeSpaceText_);
    layout->addWidget(freeSpace_);
    offsite_ = iconLine("cloud.fill", offsiteText_);
    layout->addWidget(offsite_);
    redundancy_ = iconLine("exclamationmark.triangle.fill", redundancyText_);
    redundancyIcon_ = redundancy_->findChild<QLabel*>();
    layout->addWidget(redundancy_);
    errorPanel_ = iconLine("exclamationmark.triangle.fill", errorText_);
    errorPanel_->setObjectName("errorPanel");
    errorPanel_->setAutoFillBackground(true);
    errorPanel_->setBackgroundRole(QPalette::AlternateBase);
    layout->addWidget(errorPanel_);

    ring_->setProperty("reducedMotion", reducedMotion);
    setState(state);
}

void PairRowView::setState(const PairRowState& state) {
    state_ = state;
    name_->setText(qt(state.name));
    status_->setText(qt(state.statusText));
    status_->setToolTip(state.offersErrorDetail ? texts::tapForDetails : QString());
    status_->setEnabled(true);
    status_->setCursor(state.offersErrorDetail ? Qt::PointingHandCursor : Qt::ArrowCursor);
    if (!state.offersErrorDetail) showErrorDetail_ = false;
    ring_->setRunning(state.isWorking && !ring_->property("reducedMotion").toBool());
    relink_->setVisible(state.offersErrorDetail);
    destination_->setText(qt(state.destinationLine));
    destination_->setToolTip(qt(state.destinationPath));
    freeSpace_->setVisible(state.freeSpaceLine.has_value());
    freeSpaceText_->setText(qt(state.freeSpaceLine.value_or("")));
    offsite_->setVisible(state.offsiteLine.has_value());
    offsiteText_->setText(qt(state.offsiteLine.value_or("")));
    redundancy_->setVisible(state.redundancyWarning.has_value());
    redundancyText_->setText(qt(state.redundancyWarning.value_or("")));
    if (!state.redundancySymbol.empty())
        redundancyIcon_->setPixmap(glyphIcon(state.redundancySymbol).pixmap(glyphSize, glyphSize));
    errorText_->setText(qt(state.errorDetail));
    errorPanel_->setVisible(showErrorDetail_);
}

void PairRowView::toggleErrorDetail() {
    if (!state_.offersErrorDetail) return;
    showErrorDetail_ = !showErrorDetail_;
    errorPanel_->setVisible(showErrorDetail_);
}

void PairRowView::enterEvent(QEnterEvent* event) {
    backUpNow_->setVisible(state_.isEnabled);
    QWidget::enterEvent(event);
}

void PairRowView::leaveEvent(QEvent* event) {
    backUpNow_->hide();
    QWidget::leaveEvent(event);
}

void PairRowView::showContextMenu(const QPoint& at) {
    QMenu menu(this);
    const Uuid id = state_.id;
    menu.addAction(texts::backUpNow, this, [this, id] { emit backUpNowRequested(id); });
    menu.addAction(state_.isEnabled ? texts::pause : texts::resume, this,
                   [this, id] { emit togglePauseRequested(id); });
    menu.addSeparator();
    menu.addAction(texts::changeDestination, this, [this, id] { emit relinkRequested(id); });
    menu.addAction(texts::showInFileManager, this, [this, id] { emit revealRequested(id); });
    menu.addAction(texts::restoreFiles, this, [this, id] { emit restoreRequested(id); });
    menu.addAction(texts::recoverDeletedFiles, this, [this, id] { emit recoverRequested(id); });
    menu.addAction(texts::redoSmartSetup, this, [this, id] { emit redoSmartSetupRequested(id); });
    menu.addSeparator();
    menu.addAction(destructiveIcon(), texts::removeThisBackup, this,
                   [this, id] { emit removeRequested(id); });
    menu.exec(mapToGlobal(at));
}

}  // namespace quillstow::shell
