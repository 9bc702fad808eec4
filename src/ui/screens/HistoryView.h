#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/HistoryViewModel.h"

#include <QAbstractListModel>
#include <QStyledItemDelegate>
#include <QWidget>

#include <unordered_map>
#include <vector>

class QLabel;
class QListView;
class QStackedLayout;

namespace vocle {

// The grouped history flattened into rows, a day header before each day's entries, so that a list view
// lays out and paints only what is visible.
class HistoryListModel : public QAbstractListModel {
    Q_OBJECT
  public:
    enum Role {
        isHeaderRole = Qt::UserRole + 1,
        timeRole,
        copiedRole,
        sectionRole,
        entryKeyRole,
        isKeptRole,
        errorRole
    };

    explicit HistoryListModel(HistoryViewModel& viewModel, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    const TranscriptionHistory* entryAt(int row) const;
    const PendingDictation* keptAt(int row) const;

  private:
    struct Row {
        int group;
        int entry;      // -1 for the day header and for kept recordings
        int kept = -1;  // index into the group's kept recordings
    };
    void rebuild();

    HistoryViewModel& vm_;
    std::vector<Row> rows_;
    std::unordered_map<Uuid, int> rowOfId_;
    std::vector<Subscription> subscriptions_;
};

class HistoryItemDelegate : public QStyledItemDelegate {
    Q_OBJECT
  public:
    explicit HistoryItemDelegate(QListView* view);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget*, QAbstractItemModel*, const QModelIndex&) const override {}
    void updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

    // Heights are kept per entry, so a regroup measures only new entries; a new width drops them all.
    void clearCache() const { heights_.clear(); }

  signals:
    void copyRequested(int row);

  private:
    QRect cardRect(const QRect& row) const;
    QRect textRect(const QRect& row) const;
    QRect copyRect(const QRect& row) const;
    int textWidth() const;

    QListView* view_;
    mutable std::unordered_map<qulonglong, int> heights_;
    mutable int cachedWidth_ = -1;
};

class HistoryView : public QWidget {
    Q_OBJECT
  public:
    HistoryView(HistoryViewModel& viewModel, QWidget* parent);

    QListView* listView() const { return list_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void refreshState();
    void updatePinnedHeader();
    // Kept recordings carry real buttons (reachable by keyboard and accessibility), placed over their rows.
    void placeKeptRows();

    HistoryViewModel& vm_;
    HistoryListModel* model_;
    HistoryItemDelegate* delegate_;
    QListView* list_;
    QLabel* pinned_;
    QStackedLayout* stack_;
    QWidget* loading_;
    QWidget* empty_;
    QWidget* listPage_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vocle
