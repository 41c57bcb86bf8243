#include "views/PopoverView.hpp"

#include <QFrame>
#include <QScrollArea>
#include <QToolButton>

#include "viewmodels/Texts.hpp"
#include "views/Icons.hpp"
#include "views/PairRowView.hpp"

namespace quillstow::shell {

namespace {

QFrame* divider(QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

QToolButton* iconButton(const std::string& symbol, const char* name, const char* tooltip,
                        QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(glyphIcon(symbol));
    button->setAutoRaise(true);
    button->setAccessibleName(name);
    button->setToolTip(tooltip);
    button->setObjectName(name);
    return button;
}

}  // namespace

PopoverView::PopoverView(PopoverViewModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
    setObjectName("popover");
    resize(width, height);
    setMinimumSize(width, height);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(makeHeader());
    layout->addWidget(divider(this));

    list_ = new QStackedWidget(this);
    list_->addWidget(makeEmptyState());
    auto* scroll = new QScrollArea(list_);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    rowsBox_ = new QWidget(scroll);
    rowsLayout_ = new QVBoxLayout(rowsBox_);
    rowsLayout_->setContentsMargins(0, 0, 0, 0);
    rowsLayout_->setSpacing(0);
    rowsLayout_->addStretch(1);
    scroll->setWidget(rowsBox_);
    list_->addWidget(scroll);
    layout->addWidget(list_, 1);

    layout->addWidget(divider(this));
    layout->addWidget(makeFooter());
    connect(&model_, &PopoverViewModel::changed, this, &PopoverView::refresh);
    refresh();
}

QWidget* PopoverView::makeHeader() {
    auto* header = new QWidget(this);
    auto* layout = new QHBoxLayout(header);
    layout->setContentsMargins(12, 8, 8, 8);
    auto* title = new QLabel(texts::applicationName, header);
    QFont font = title->font();
    font.setBold(true);
    title->setFont(font);
    layout->addWidget(title, 1);
    auto* add = iconButton("plus", texts::addBackupName, texts::addBackupTooltip, header);
    connect(add, &QToolButton::clicked, this, &PopoverView::addBackupRequested);
    layout->addWidget(add);
    auto* gear = iconButton("gearshape", texts::settings, texts::settingsTooltip, header);
    connect(gear, &QToolButton::clicked, this, &PopoverView::gearTapped);
    layout->addWidget(gear);
    return header;
}

QWidget* PopoverView::makeEmptyState() {
    auto* empty = new QWidget(this);
    auto* layout = new QVBoxLayout(empty);
    layout->addStretch(1);
    auto* icon = new QLabel(empty);
    icon->setPixmap(glyphIcon("folder").pixmap(40, 40));
    icon->setAlignment(Qt::AlignCenter);
    layout->addWidget(icon);
    for (const char* text : {texts::emptyTitle, texts::emptyHint}) {
        auto* label = new QLabel(text, empty);
        label->setAlignment(Qt::AlignCenter);
        label->setWordWrap(true);
        layout->addWidget(label);
    }
    layout->addStretch(1);
    return empty;
}

QWidget* PopoverView::makeFooter() {
    auto* footer = new QWidget(this);
    auto* layout = new QVBoxLayout(footer);
    layout->setContentsMargins(12, 6, 12, 8);
    lastBackup_ = new QLabel(footer);
    layout->addWidget(lastBackup_);
    auto* buttons = new QHBoxLayout;
    pauseAll_ = new QPushButton(footer);
    connect(pauseAll_, &QPushButton::clicked, this, [this] { model_.pauseOrResumeAll(); });
    backUpNow_ = new QPushButton(texts::backUpNow, footer);
    backUpNow_->setToolTip(texts::backUpAllTooltip);
    backUpNow_->setDefault(true);
    connect(backUpNow_, &QPushButton::clicked, this, [this] { model_.backUpAllNow(); });
    buttons->addWidget(pauseAll_);
    buttons->addStretch(1);
    buttons->addWidget(backUpNow_);
    layout->addLayout(buttons);
    return footer;
}

PairRowView* PopoverView::makeRow(const PairRowState& state) {
    auto* row = new PairRowView(state, model_.prefersReducedMotion(), rowsBox_);
    connect(row, &PairRowView::backUpNowRequested, this,
            [this](const Uuid& id) { model_.backUpPairNow(id); });
    connect(row, &PairRowView::togglePauseRequested, this,
            [this](const Uuid& id) { model_.togglePausePair(id); });
    connect(row, &PairRowView::relinkRequested, this, &PopoverView::relinkRequested);
    connect(row, &PairRowView::revealRequested, this, &PopoverView::revealRequested);
    connect(row, &PairRowView::restoreRequested, this, &PopoverView::restoreRequested);
    connect(row, &PairRowView::recoverRequested, this, &PopoverView::recoverRequested);
    connect(row, &PairRowView::redoSmartSetupRequested, this,
            &PopoverView::redoSmartSetupRequested);
    connect(row, &PairRowView::removeRequested, this, &PopoverView::removeRequested);
    return row;
}

void PopoverView::showRows(const std::vector<PairRowState>& rows) {
    const bool samePairs =
        rows.size() == rows_.size() && std::equal(rows.begin(), rows.end(), rows_.begin(),
                                                  [](const PairRowState& state, PairRowView* row) {
                                                      return state.id == row->pairId();
                                                  });
    if (samePairs) {
        for (std::size_t i = 0; i < rows.size(); ++i)
            rows_[i]->setState(rows[i]);
        return;
    }
    for (PairRowView* row : rows_)
        row->deleteLater();
    rows_.clear();
    for (const PairRowState& state : rows) {
        PairRowView* row = makeRow(state);
        rowsLayout_->insertWidget(rowsLayout_->count() - 1, row);
        rows_.push_back(row);
    }
}

void PopoverView::refresh() {
    const PopoverState state = model_.popover();
    list_->setCurrentIndex(state.rows.empty() ? 0 : 1);
    showRows(state.rows);
    lastBackup_->setVisible(state.lastBackupLine.has_value());
    lastBackup_->setText(QString::fromStdString(state.lastBackupLine.value_or("")));
    pauseAll_->setText(state.offersPauseAll ? texts::pauseAll : texts::resumeAll);
    pauseAll_->setToolTip(state.offersPauseAll ? texts::pauseAllTooltip : texts::resumeAllTooltip);
}

void PopoverView::showEvent(QShowEvent* event) {
    // The time-ago texts move on while the popover is closed.
    refresh();
    QWidget::showEvent(event);
}

}  // namespace quillstow::shell
