#include "ui/screens/HistoryView.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedLayout>
#include <QVBoxLayout>

#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

namespace {

constexpr int kHeaderHeight = 30;
constexpr int kSectionGap = 16;  // above every header but the first
constexpr int kRowGap = 12;
constexpr int kPad = 12;
constexpr int kCopySize = 26;
constexpr int kKeptButtonsWidth = 190;  // "Retry" and "Delete" beside the error text

const QColor kNotTranscribed{0xff, 0x9f, 0x0a};

// A kept recording's row: what went wrong and its two actions. The delegate paints the card under it.
QWidget* keptRowWidget(HistoryViewModel& vm, const PendingDictation& entry) {
    auto* row = new QWidget;
    row->setObjectName("keptDictation");
    row->setAttribute(Qt::WA_TranslucentBackground);
    auto* h = new QHBoxLayout(row);
    h->setContentsMargins(kPad, kPad, kPad, kPad + kRowGap);
    h->setSpacing(8);
    auto* text = new QVBoxLayout;
    text->setSpacing(4);
    auto* titleLine = new QHBoxLayout;
    titleLine->setSpacing(8);
    auto* title = label(HistoryViewModel::kNotTranscribed);
    QFont f = title->font();
    f.setWeight(QFont::DemiBold);
    title->setFont(f);
    title->setStyleSheet("color: #ff9f0a;");
    titleLine->addWidget(title);
    titleLine->addWidget(label(qs(HistoryViewModel::timeText(entry.timestamp)), "caption"));
    titleLine->addStretch();
    text->addLayout(titleLine);
    auto* error = label(qs(entry.error), "secondary");
    error->setWordWrap(true);
    error->setTextInteractionFlags(Qt::TextSelectableByMouse);
    text->addWidget(error);
    h->addLayout(text, 1);
    const Uuid id = entry.id;
    const bool busy = vm.isRetrying(id);
    auto* retry = button(busy ? HistoryViewModel::kRetrying : HistoryViewModel::kRetry);
    retry->setEnabled(!busy);
    retry->setAccessibleDescription(qs(
        "Send the recording of " + HistoryViewModel::timeText(entry.timestamp) + " for transcription again"));
    auto* remove = button(HistoryViewModel::kDelete, "destructive");
    remove->setEnabled(!busy);
    remove->setAccessibleDescription(
        qs("Delete the recording of " + HistoryViewModel::timeText(entry.timestamp)));
    QObject::connect(retry, &QPushButton::clicked, row, [&vm, id] { vm.retry(id); });
    QObject::connect(remove, &QPushButton::clicked, row, [&vm, id] { vm.remove(id); });
    h->addWidget(retry, 0, Qt::AlignVCenter);
    h->addWidget(remove, 0, Qt::AlignVCenter);
    return row;
}

}  // namespace

HistoryListModel::HistoryListModel(HistoryViewModel& vm, QObject* parent) : QAbstractListModel(parent), vm_(vm) {
    subscriptions_.push_back(vm_.groups.subscribe([this](const auto&) { rebuild(); }));
    // A retry starting or ending re-creates the rows' buttons in their new state.
    subscriptions_.push_back(vm_.retryStateChanged.subscribe([this](const Uuid&) { rebuild(); }));
    subscriptions_.push_back(vm_.copyStateChanged.subscribe([this](const Uuid& id) {
        auto it = rowOfId_.find(id);
        if (it == rowOfId_.end()) return;
        const auto i = index(it->second);
        emit dataChanged(i, i, {copiedRole});
    }));
    rebuild();
}

void HistoryListModel::rebuild() {
    beginResetModel();
    rows_.clear();
    rowOfId_.clear();
    const auto& groups = vm_.groups.get();
    for (int g = 0; g < static_cast<int>(groups.size()); ++g) {
        rows_.push_back({g, -1});
        for (int k = 0; k < static_cast<int>(groups[g].kept.size()); ++k) rows_.push_back({g, -1, k});
        for (int e = 0; e < static_cast<int>(groups[g].entries.size()); ++e) {
            rowOfId_[groups[g].entries[e].id] = static_cast<int>(rows_.size());
            rows_.push_back({g, e});
        }
    }
    endResetModel();
}

int HistoryListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

const TranscriptionHistory* HistoryListModel::entryAt(int row) const {
    if (row < 0 || row >= static_cast<int>(rows_.size()) || rows_[row].entry < 0) return nullptr;
    return &vm_.groups.get()[rows_[row].group].entries[rows_[row].entry];
}

const PendingDictation* HistoryListModel::keptAt(int row) const {
    if (row < 0 || row >= static_cast<int>(rows_.size()) || rows_[row].kept < 0) return nullptr;
    return &vm_.groups.get()[rows_[row].group].kept[rows_[row].kept];
}

QVariant HistoryListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= static_cast<int>(rows_.size())) return {};
    const Row& row = rows_[index.row()];
    const auto& group = vm_.groups.get()[row.group];
    if (row.kept >= 0) {
        const PendingDictation& kept = group.kept[row.kept];
        switch (role) {
            case isKeptRole:
                return true;
            case sectionRole:
                return row.group;
            case Qt::DisplayRole:
                return qs(HistoryViewModel::kNotTranscribed);
            case errorRole:
            case Qt::AccessibleDescriptionRole:
                return qs(kept.error);
            case timeRole:
                return qs(HistoryViewModel::timeText(kept.timestamp));
            case entryKeyRole:
                return QVariant(qulonglong(std::hash<Uuid>{}(kept.id)) ^
                                qulonglong(std::hash<std::string>{}(kept.error)));
            default:
                return {};
        }
    }
    switch (role) {
        case isKeptRole:
            return false;
        case isHeaderRole:
            return row.entry < 0;
        case sectionRole:
            return row.group;
        case Qt::DisplayRole:
            return row.entry < 0 ? qs(group.label) : qs(group.entries[row.entry].text);
        case timeRole:
            return row.entry < 0 ? QVariant() : qs(HistoryViewModel::timeText(group.entries[row.entry].timestamp));
        case copiedRole:
            return row.entry >= 0 && vm_.isCopied(group.entries[row.entry].id);
        case entryKeyRole:
            return row.entry < 0 ? QVariant() : QVariant(qulonglong(std::hash<Uuid>{}(group.entries[row.entry].id)));
        default:
            return {};
    }
}

Qt::ItemFlags HistoryListModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return Qt::NoItemFlags;
    if (index.data(isHeaderRole).toBool() || index.data(isKeptRole).toBool()) return Qt::ItemIsEnabled;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
}

HistoryItemDelegate::HistoryItemDelegate(QListView* view) : QStyledItemDelegate(view), view_(view) {}

int HistoryItemDelegate::textWidth() const { return std::max(80, view_->viewport()->width() - 2 * kPad - kCopySize - 8); }

QRect HistoryItemDelegate::cardRect(const QRect& row) const { return row.adjusted(0, 0, 0, -kRowGap); }

QRect HistoryItemDelegate::textRect(const QRect& row) const {
    const QRect card = cardRect(row);
    const int timeHeight = view_->fontMetrics().height();
    return QRect(card.left() + kPad, card.top() + kPad + timeHeight + 4, textWidth(), card.height() - 2 * kPad - timeHeight - 4);
}

QRect HistoryItemDelegate::copyRect(const QRect& row) const {
    const QRect card = cardRect(row);
    return QRect(card.right() - kPad - kCopySize + 4, card.top() + kPad - 4, kCopySize, kCopySize);
}

QSize HistoryItemDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const int width = view_->viewport()->width();
    if (width != cachedWidth_) {
        heights_.clear();
        cachedWidth_ = width;
    }
    if (index.data(HistoryListModel::isHeaderRole).toBool())
        return {width, kHeaderHeight + (index.row() == 0 ? 0 : kSectionGap)};
    const qulonglong key = index.data(HistoryListModel::entryKeyRole).toULongLong();
    if (auto it = heights_.find(key); it != heights_.end()) return {width, it->second};
    const QFontMetrics fm(option.font);
    if (index.data(HistoryListModel::isKeptRole).toBool()) {
        const QRect error =
            fm.boundingRect(QRect(0, 0, std::max(80, textWidth() - kKeptButtonsWidth), 100000),
                            Qt::TextWordWrap, index.data(HistoryListModel::errorRole).toString());
        const int height = kPad + std::max(fm.height() + 4 + error.height(), 34) + kPad + kRowGap;
        heights_[key] = height;
        return {width, height};
    }
    const QRect bounds = fm.boundingRect(QRect(0, 0, textWidth(), 100000), Qt::TextWordWrap,
                                         index.data(Qt::DisplayRole).toString());
    const int height = kPad + fm.height() + 4 + bounds.height() + kPad + kRowGap;
    // Entries that left the history would otherwise stay forever.
    if (heights_.size() > 2 * static_cast<size_t>(index.model()->rowCount()) + 64) heights_.clear();
    heights_[key] = height;
    return {width, height};
}

void HistoryItemDelegate::paint(QPainter* p, const QStyleOptionViewItem& option, const QModelIndex& index) const {
    p->save();
    p->setRenderHint(QPainter::Antialiasing);
    const QPalette& pal = view_->palette();
    if (index.data(HistoryListModel::isHeaderRole).toBool()) {
        QFont f = option.font;
        f.setWeight(QFont::DemiBold);
        f.setPointSizeF(f.pointSizeF() * 1.08);
        p->setFont(f);
        p->setPen(pal.color(QPalette::WindowText));
        const QRect r = option.rect.adjusted(2, index.row() == 0 ? 0 : kSectionGap, 0, 0);
        p->drawText(r, Qt::AlignLeft | Qt::AlignVCenter, index.data(Qt::DisplayRole).toString());
        p->restore();
        return;
    }
    const QRect card = cardRect(option.rect);
    QPainterPath path;
    path.addRoundedRect(QRectF(card).adjusted(0.5, 0.5, -0.5, -0.5), 10, 10);
    if (index.data(HistoryListModel::isKeptRole).toBool()) {
        p->fillPath(path, pal.color(QPalette::Base));
        QColor edge = kNotTranscribed;
        edge.setAlphaF(0.55);
        p->setPen(QPen(edge, 1));
        p->drawPath(path);
        p->restore();
        return;
    }
    QColor fill = pal.color(QPalette::Base);
    if (option.state & QStyle::State_MouseOver) fill = fill.lighter(115);
    p->fillPath(path, fill);
    QColor border = pal.color(QPalette::WindowText);
    border.setAlphaF(0.08);
    p->setPen(QPen(border, 1));
    p->drawPath(path);

    QColor dim = pal.color(QPalette::WindowText);
    dim.setAlphaF(0.55);
    QFont small = option.font;
    small.setPointSizeF(small.pointSizeF() * 0.85);
    p->setFont(small);
    p->setPen(dim);
    p->drawText(QRect(card.left() + kPad, card.top() + kPad, textWidth(), option.fontMetrics.height()),
                Qt::AlignLeft | Qt::AlignVCenter, index.data(HistoryListModel::timeRole).toString());
    p->setFont(option.font);
    p->setPen(pal.color(QPalette::Text));
    p->drawText(textRect(option.rect), Qt::TextWordWrap | Qt::AlignLeft | Qt::AlignTop,
                index.data(Qt::DisplayRole).toString());
    const bool copied = index.data(HistoryListModel::copiedRole).toBool();
    const QRect copy = copyRect(option.rect);
    const QColor iconColor = copied ? QColor(0x34, 0xc7, 0x59) : pal.color(QPalette::WindowText);
    p->drawPixmap(copy.adjusted(5, 5, -5, -5), symbolPixmap(copied ? "checkmark" : "doc.on.doc", 16, iconColor));
    p->restore();
}

bool HistoryItemDelegate::editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                                      const QModelIndex& index) {
    if (event->type() == QEvent::MouseButtonRelease && !index.data(HistoryListModel::isHeaderRole).toBool() &&
        !index.data(HistoryListModel::isKeptRole).toBool()) {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (copyRect(option.rect).contains(mouse->position().toPoint())) {
            emit copyRequested(index.row());
            return true;
        }
    }
    return QStyledItemDelegate::editorEvent(event, model, option, index);
}

QWidget* HistoryItemDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem&, const QModelIndex& index) const {
    if (index.data(HistoryListModel::isHeaderRole).toBool() ||
        index.data(HistoryListModel::isKeptRole).toBool())
        return nullptr;
    // A read-only text box over the transcript, so that part of it can be selected.
    auto* editor = new QPlainTextEdit(parent);
    editor->setReadOnly(true);
    editor->setFrameShape(QFrame::NoFrame);
    editor->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    editor->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    editor->document()->setDocumentMargin(0);
    editor->setStyleSheet("background: transparent;");
    return editor;
}

void HistoryItemDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const {
    auto* text = static_cast<QPlainTextEdit*>(editor);
    text->setPlainText(index.data(Qt::DisplayRole).toString());
    text->selectAll();
}

void HistoryItemDelegate::updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                                               const QModelIndex& index) const {
    // A kept recording's widget covers its whole row; a transcript's text box only the text.
    if (index.data(HistoryListModel::isKeptRole).toBool()) {
        editor->setGeometry(option.rect);
        return;
    }
    editor->setGeometry(textRect(option.rect));
}

HistoryView::HistoryView(HistoryViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(24, 20, 24, 0);
    outer->setSpacing(8);
    outer->addWidget(label("History", "title"));
    stack_ = new QStackedLayout;
    outer->addLayout(stack_, 1);

    loading_ = new QWidget;
    auto* l = new QVBoxLayout(loading_);
    l->addStretch();
    auto* loadingText = label(HistoryViewModel::kLoadingText, "secondary");
    loadingText->setAlignment(Qt::AlignCenter);
    l->addWidget(loadingText);
    l->addStretch();
    stack_->addWidget(loading_);

    empty_ = new QWidget;
    auto* e = new QVBoxLayout(empty_);
    e->addStretch();
    auto* icon = new QLabel;
    icon->setPixmap(symbolPixmap("doc.text", 40));
    icon->setAlignment(Qt::AlignCenter);
    e->addWidget(icon);
    auto* emptyTitle = label(HistoryViewModel::kEmptyTitle, "emptyTitle");
    emptyTitle->setAlignment(Qt::AlignCenter);
    e->addWidget(emptyTitle);
    auto* emptyText = label(HistoryViewModel::kEmptyText, "secondary");
    emptyText->setAlignment(Qt::AlignCenter);
    e->addWidget(emptyText);
    e->addStretch(2);
    stack_->addWidget(empty_);

    listPage_ = new QWidget;
    auto* lp = new QVBoxLayout(listPage_);
    lp->setContentsMargins(0, 0, 0, 0);
    list_ = new QListView;
    list_->setObjectName("historyList");
    list_->setFrameShape(QFrame::NoFrame);
    list_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    list_->verticalScrollBar()->setSingleStep(24);
    list_->setResizeMode(QListView::Adjust);
    list_->setSelectionMode(QAbstractItemView::NoSelection);
    list_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::SelectedClicked);
    list_->setMouseTracking(true);
    list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list_->viewport()->setAutoFillBackground(false);
    model_ = new HistoryListModel(vm_, this);
    delegate_ = new HistoryItemDelegate(list_);
    list_->setModel(model_);
    list_->setItemDelegate(delegate_);
    lp->addWidget(list_);
    stack_->addWidget(listPage_);

    // The header of the day at the top stays in place while its entries scroll under it.
    pinned_ = label("", "pinnedHeader", list_->viewport());
    pinned_->setAutoFillBackground(true);
    pinned_->setContentsMargins(2, 0, 0, 0);
    QFont f = pinned_->font();
    f.setWeight(QFont::DemiBold);
    f.setPointSizeF(f.pointSizeF() * 1.08);
    pinned_->setFont(f);

    connect(delegate_, &HistoryItemDelegate::copyRequested, this, [this](int row) {
        if (auto* entry = model_->entryAt(row)) vm_.copy(*entry);
    });
    connect(list_->verticalScrollBar(), &QScrollBar::valueChanged, this, [this] { updatePinnedHeader(); });
    connect(model_, &QAbstractItemModel::modelReset, this, [this] {
        placeKeptRows();
        refreshState();
    });
    list_->viewport()->installEventFilter(this);
    subscriptions_.push_back(vm_.isLoading.subscribe([this](const auto&) { refreshState(); }));
    placeKeptRows();
    refreshState();
}

void HistoryView::placeKeptRows() {
    for (int row = 0; row < model_->rowCount(); ++row) {
        if (const PendingDictation* kept = model_->keptAt(row))
            list_->setIndexWidget(model_->index(row), keptRowWidget(vm_, *kept));
    }
}

bool HistoryView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == list_->viewport() && event->type() == QEvent::Resize) {
        delegate_->clearCache();
        QMetaObject::invokeMethod(this, [this] { updatePinnedHeader(); }, Qt::QueuedConnection);
    }
    return QWidget::eventFilter(watched, event);
}

void HistoryView::refreshState() {
    if (vm_.isLoading.get()) {
        stack_->setCurrentWidget(loading_);
    } else if (vm_.groups.get().empty()) {
        stack_->setCurrentWidget(empty_);
    } else {
        stack_->setCurrentWidget(listPage_);
    }
    updatePinnedHeader();
}

void HistoryView::updatePinnedHeader() {
    const QModelIndex top = list_->indexAt(QPoint(4, 1));
    // Scrolled to the very top, the first header is in its own place already.
    if (!top.isValid() || list_->verticalScrollBar()->value() == 0) {
        pinned_->hide();
        return;
    }
    const int group = top.data(HistoryListModel::sectionRole).toInt();
    pinned_->setText(qs(vm_.groups.get()[group].label));
    pinned_->setGeometry(0, 0, list_->viewport()->width(), kHeaderHeight);
    pinned_->show();
    pinned_->raise();
}

}  // namespace vocle
