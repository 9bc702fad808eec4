#include "ui/screens/ReplacementsView.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

namespace {

constexpr int kColumnSpacing = 8;
constexpr int kTrashSize = 28;

// A one-line label that ends in "…" when the column is too narrow; the full text is the tooltip.
class ElidedLabel : public QLabel {
  public:
    explicit ElidedLabel(const QString& text) : QLabel(text) {
        setToolTip(text);
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        setMinimumWidth(60);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setPen(palette().color(QPalette::WindowText));
        p.drawText(contentsRect(), Qt::AlignLeft | Qt::AlignVCenter,
                   fontMetrics().elidedText(text(), Qt::ElideRight, contentsRect().width()));
    }
};

// One pair of the table; clicking it opens the drawer, its trash button deletes.
class ReplacementRow : public QFrame {
  public:
    ReplacementRow(const Replacement& r, std::function<void()> onEdit, std::function<void()> onDelete)
        : onEdit_(std::move(onEdit)) {
        setRole(this, "tableRow");
        setAttribute(Qt::WA_Hover);
        setCursor(Qt::PointingHandCursor);
        // Read out as the pair it is; the whole row opens the drawer.
        setAccessibleName(qs(r.original));
        setAccessibleDescription(qs(r.replacement));
        auto* h = new QHBoxLayout(this);
        h->setContentsMargins(10, 6, 6, 6);
        h->setSpacing(kColumnSpacing);
        auto* from = new ElidedLabel(display(r.original));
        auto* to = new ElidedLabel(display(r.replacement));
        h->addWidget(from, 1);
        h->addWidget(to, 1);
        auto* trash = new QPushButton;
        setRole(trash, "plain");
        trash->setIcon(symbolIcon("trash"));
        trash->setToolTip("Delete");
        trash->setAccessibleName("Delete " + qs(r.original));
        trash->setFixedSize(kTrashSize, kTrashSize);
        trash->setCursor(Qt::PointingHandCursor);
        QObject::connect(trash, &QPushButton::clicked, trash, [onDelete = std::move(onDelete)] { onDelete(); });
        h->addWidget(trash);
    }

  protected:
    void mouseReleaseEvent(QMouseEvent* e) override {
        if (e->button() == Qt::LeftButton) onEdit_();
    }

  private:
    // Line feeds are shown as ↵ so that "new line" rows stay one line high.
    static QString display(const std::string& text) {
        QString s = qs(text);
        s.replace('\n', QChar(0x21B5));
        return s;
    }
    std::function<void()> onEdit_;
};

}  // namespace

ReplacementsView::ReplacementsView(ReplacementsViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* page = scrollingPage(this);
    auto* top = new QHBoxLayout;
    top->addWidget(label(ReplacementsViewModel::kTitle, "title"));
    top->addStretch();
    auto* add = button("Add Replacement", "primary");
    top->addWidget(add);
    page->addLayout(top);
    page->addWidget(paragraph(ReplacementsViewModel::kDescription, "secondary"));
    page->addSpacing(6);
    connect(add, &QPushButton::clicked, this, [this] { vm_.openAdd(); });

    empty_ = new QWidget;
    auto* e = new QVBoxLayout(empty_);
    e->setContentsMargins(0, 40, 0, 0);
    auto* icon = new QLabel;
    icon->setPixmap(symbolPixmap("character.textbox", 40));
    icon->setAlignment(Qt::AlignCenter);
    e->addWidget(icon);
    auto* emptyTitle = label(ReplacementsViewModel::kEmptyTitle, "emptyTitle");
    emptyTitle->setAlignment(Qt::AlignCenter);
    e->addWidget(emptyTitle);
    auto* emptyText = label(ReplacementsViewModel::kEmptyText, "secondary");
    emptyText->setAlignment(Qt::AlignCenter);
    e->addWidget(emptyText);
    page->addWidget(empty_);

    table_ = new QFrame;
    setRole(table_, "card");
    auto* t = new QVBoxLayout(table_);
    t->setContentsMargins(4, 6, 4, 6);
    t->setSpacing(0);
    auto* headings = new QHBoxLayout;
    // The rows' geometry exactly, the trash button's column left empty, so that headings line up.
    headings->setContentsMargins(10, 2, 6, 6);
    headings->setSpacing(kColumnSpacing);
    headings->addWidget(label("Original Text", "caption"), 1);
    headings->addWidget(label("Replacement Text", "caption"), 1);
    // A widget, not a spacer: layouts put no spacing next to empty items.
    auto* trashColumn = new QWidget;
    trashColumn->setFixedSize(kTrashSize, 1);
    headings->addWidget(trashColumn);
    t->addLayout(headings);
    rows_ = new QVBoxLayout;
    rows_->setSpacing(0);
    t->addLayout(rows_);
    page->addWidget(table_);
    page->addStretch();

    drawer_ = new QFrame(this);
    setRole(drawer_, "drawer");
    drawer_->setAutoFillBackground(true);
    auto* d = new QVBoxLayout(drawer_);
    d->setContentsMargins(18, 16, 18, 16);
    d->setSpacing(8);
    auto* titleRow = new QHBoxLayout;
    drawerTitle_ = label("", "headline");
    titleRow->addWidget(drawerTitle_);
    titleRow->addStretch();
    auto* close = new QPushButton;
    setRole(close, "plain");
    close->setIcon(symbolIcon("xmark"));
    close->setFixedSize(28, 28);
    close->setToolTip("Close");
    close->setAccessibleName("Close");
    titleRow->addWidget(close);
    d->addLayout(titleRow);
    d->addSpacing(6);
    d->addWidget(label("Original Text", "caption"));
    original_ = new QLineEdit;
    original_->setAccessibleName("Original Text");
    original_->setPlaceholderText(ReplacementsViewModel::kOriginalPlaceholder);
    d->addWidget(original_);
    d->addWidget(label("Replacement Text", "caption"));
    replacement_ = new QLineEdit;
    replacement_->setAccessibleName("Replacement Text");
    d->addWidget(replacement_);
    drawerError_ = paragraph("", "error");
    d->addWidget(drawerError_);
    d->addStretch();
    drawerDelete_ = button("Delete Replacement", "destructive");
    d->addWidget(drawerDelete_);
    drawerSave_ = button("Save", "primary");
    d->addWidget(drawerSave_);
    drawer_->hide();

    connect(close, &QPushButton::clicked, this, [this] { vm_.closeDrawer(); });
    connect(original_, &QLineEdit::textEdited, this, [this](const QString& s) { vm_.setDrawerOriginal(ss(s)); });
    connect(replacement_, &QLineEdit::textEdited, this, [this](const QString& s) { vm_.setDrawerReplacement(ss(s)); });
    connect(original_, &QLineEdit::returnPressed, this, [this] { vm_.saveDrawer(); });
    connect(replacement_, &QLineEdit::returnPressed, this, [this] { vm_.saveDrawer(); });
    connect(drawerSave_, &QPushButton::clicked, this, [this] { vm_.saveDrawer(); });
    connect(drawerDelete_, &QPushButton::clicked, this, [this] { vm_.deleteEditing(); });

    changed_ = vm_.changed.subscribe([this] { QMetaObject::invokeMethod(this, [this] { refresh(); }, Qt::QueuedConnection); });
    refresh();
}

void ReplacementsView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    placeDrawer();
}

void ReplacementsView::hideEvent(QHideEvent* event) {
    if (vm_.showingDrawer.get()) vm_.closeDrawer();
    QWidget::hideEvent(event);
}

void ReplacementsView::placeDrawer() {
    const int width = std::min(320, std::max(240, this->width() / 2));
    drawer_->setGeometry(this->width() - width, 0, width, height());
}

void ReplacementsView::rebuildRows() {
    while (auto* item = rows_->takeAt(0)) {
        if (auto* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
    shown_ = vm_.replacements();
    for (const auto& r : shown_) {
        const Uuid id = r.id;
        rows_->addWidget(new ReplacementRow(
            r, [this, id] { vm_.openEdit(id); }, [this, id] { vm_.deleteReplacement(id); }));
    }
}

void ReplacementsView::refresh() {
    if (vm_.replacements() != shown_ || shownCount_ != vm_.replacements().size()) {
        rebuildRows();
        shownCount_ = shown_.size();
    }
    const bool hasRows = !vm_.replacements().empty();
    empty_->setVisible(!hasRows);
    table_->setVisible(hasRows);

    const bool showing = vm_.showingDrawer.get();
    if (showing) {
        drawerTitle_->setText(qs(vm_.drawerTitle()));
        if (ss(original_->text()) != vm_.drawerOriginal.get()) original_->setText(qs(vm_.drawerOriginal.get()));
        if (ss(replacement_->text()) != vm_.drawerReplacement.get())
            replacement_->setText(qs(vm_.drawerReplacement.get()));
        const bool edit = vm_.drawerMode.get() == DrawerMode::edit;
        drawerDelete_->setVisible(edit);
        // Edits save themselves; the button is for adding.
        drawerSave_->setVisible(!edit);
        drawerError_->setText(qs(vm_.drawerError.get().value_or("")));
        drawerError_->setVisible(vm_.drawerError.get().has_value());
        if (!drawer_->isVisible()) {
            placeDrawer();
            drawer_->show();
            drawer_->raise();
            original_->setFocus();
        }
    } else {
        drawer_->hide();
    }
}

}  // namespace vocle
