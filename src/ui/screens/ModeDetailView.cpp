#include "ui/screens/ModeDetailView.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

namespace {

// One entry of the mode-type list: name over description, highlighted when chosen.
class TypeRow : public QFrame {
  public:
    TypeRow(const ModeTypeItem& item, bool selected, std::function<void()> choose) : choose_(std::move(choose)) {
        setRole(this, "listRow");
        setProperty("selected", selected);
        setAttribute(Qt::WA_Hover);
        setCursor(Qt::PointingHandCursor);
        auto* v = new QVBoxLayout(this);
        v->setContentsMargins(10, 6, 10, 6);
        v->setSpacing(1);
        v->addWidget(label(qs(item.name), "rowTitle"));
        v->addWidget(paragraph(qs(item.description), "caption"));
    }

  protected:
    void mouseReleaseEvent(QMouseEvent* e) override {
        if (e->button() == Qt::LeftButton) choose_();
    }

  private:
    std::function<void()> choose_;
};

// Picks one of the installed applications, by name, with a filter.
class ApplicationChooser : public QDialog {
  public:
    ApplicationChooser(const std::vector<InstalledApplication>& apps, QWidget* parent) : QDialog(parent) {
        setWindowTitle("Select Application");
        setModal(true);
        resize(380, 440);
        auto* v = new QVBoxLayout(this);
        filter_ = new QLineEdit;
        filter_->setPlaceholderText("Search");
        filter_->setClearButtonEnabled(true);
        v->addWidget(filter_);
        list_ = new QListWidget;
        for (const auto& app : apps) {
            auto* item = new QListWidgetItem(qs(app.name.empty() ? app.desktopId : app.name), list_);
            item->setData(Qt::UserRole, qs(app.desktopId));
            item->setToolTip(qs(app.desktopId));
        }
        v->addWidget(list_, 1);
        auto* buttons = new QDialogButtonBox;
        buttons->addButton("Cancel", QDialogButtonBox::RejectRole);
        select_ = buttons->addButton("Select", QDialogButtonBox::AcceptRole);
        select_->setEnabled(false);
        v->addWidget(buttons);
        connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
        connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
        connect(list_, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) { select_->setEnabled(item != nullptr); });
        connect(list_, &QListWidget::itemDoubleClicked, this, &QDialog::accept);
        connect(filter_, &QLineEdit::textChanged, this, [this](const QString& text) {
            for (int i = 0; i < list_->count(); ++i) {
                auto* item = list_->item(i);
                item->setHidden(!item->text().contains(text, Qt::CaseInsensitive) &&
                                !item->data(Qt::UserRole).toString().contains(text, Qt::CaseInsensitive));
            }
        });
    }
    std::string chosen() const {
        auto* item = list_->currentItem();
        return item ? ss(item->data(Qt::UserRole).toString()) : std::string();
    }

  private:
    QLineEdit* filter_;
    QListWidget* list_;
    QPushButton* select_;
};

QLabel* fieldLabel(const QString& text) { return label(text, "caption"); }

}  // namespace

ModeDetailView::ModeDetailView(ModeDetailViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* page = scrollingPage(this);
    header(page, vm_.isNewMode() ? "New Mode" : "Edit Mode");

    auto* general = section(page, "General");
    general->addWidget(fieldLabel("Mode Name"));
    name_ = new QLineEdit;
    name_->setAccessibleName("Mode Name");
    general->addWidget(name_);
    general->addWidget(fieldLabel("Mode Type"));
    typeTrigger_ = button("", "dropdown");
    typeTrigger_->setAccessibleDescription("Mode Type");
    typeTrigger_->setIcon(symbolIcon("chevron.down"));
    typeTrigger_->setLayoutDirection(Qt::RightToLeft);
    general->addWidget(typeTrigger_);
    typeDescription_ = paragraph("", "caption");
    general->addWidget(typeDescription_);
    typeList_ = new QFrame;
    setRole(typeList_, "dropdownList");
    typeRows_ = new QVBoxLayout(typeList_);
    typeRows_->setContentsMargins(4, 4, 4, 4);
    typeRows_->setSpacing(1);
    general->addWidget(typeList_);

    auto* instructions = section(page, "Custom Instructions");
    prompt_ = new QPlainTextEdit;
    prompt_->setAccessibleName("Custom Instructions");
    prompt_->setMinimumHeight(110);
    instructions->addWidget(prompt_);
    instructions->addWidget(paragraph(ModeDetailViewModel::kPromptHelp, "caption"));

    auto* voice = section(page, "Voice Settings");
    auto* languageRow = new QHBoxLayout;
    languageRow->addWidget(label("Target Language"));
    languageRow->addStretch();
    language_ = new QComboBox;
    language_->setMaxVisibleItems(14);
    for (const auto& l : vm_.languages()) language_->addItem(qs(l));
    languageRow->addWidget(language_);
    voice->addLayout(languageRow);

    auto* audio = section(page, "Audio Settings");
    mute_ = new QCheckBox("Mute audio while recording");
    systemAudio_ = new QCheckBox("Record from system audio");
    audio->addWidget(mute_);
    audio->addWidget(systemAudio_);

    auto* activation = section(page, "Activate When Using");
    activation->addWidget(fieldLabel("Application"));
    addApplication_ = button(ModeDetailViewModel::kAddApplication);
    auto* addRow = new QHBoxLayout;
    addRow->addWidget(addApplication_);
    addRow->addStretch();
    activation->addLayout(addRow);
    applicationRow_ = new QWidget;
    auto* appRow = new QHBoxLayout(applicationRow_);
    appRow->setContentsMargins(0, 0, 0, 0);
    applicationName_ = label("", "rowTitle");
    appRow->addWidget(applicationName_, 1);
    auto* edit = new QPushButton;
    setRole(edit, "plain");
    edit->setIcon(symbolIcon("pencil"));
    edit->setToolTip("Change application");
    edit->setAccessibleName("Change application");
    auto* clear = new QPushButton;
    setRole(clear, "plain");
    clear->setIcon(symbolIcon("trash"));
    clear->setToolTip("Remove application");
    clear->setAccessibleName("Remove application");
    for (auto* b : {edit, clear}) {
        b->setFixedSize(28, 28);
        b->setCursor(Qt::PointingHandCursor);
        appRow->addWidget(b);
    }
    activation->addWidget(applicationRow_);
    activation->addWidget(fieldLabel("Website Domain"));
    website_ = new QLineEdit;
    website_->setAccessibleName("Website Domain");
    website_->setPlaceholderText(ModeDetailViewModel::kWebsitePlaceholder);
    activation->addWidget(website_);

    page->addSpacing(6);
    auto* buttons = new QHBoxLayout;
    delete_ = button("Delete Mode", "destructive");
    delete_->setVisible(!vm_.isNewMode());
    buttons->addWidget(delete_);
    buttons->addStretch();
    auto* cancel = button("Cancel");
    auto* save = button("Save", "primary");
    save->setDefault(true);
    buttons->addWidget(cancel);
    buttons->addWidget(save);
    page->addLayout(buttons);
    page->addStretch();

    connect(name_, &QLineEdit::textEdited, this, [this](const QString& s) { vm_.setName(ss(s)); });
    connect(typeTrigger_, &QPushButton::clicked, this, [this] { vm_.toggleDropdown(); });
    connect(prompt_, &QPlainTextEdit::textChanged, this, [this] {
        if (!refreshing_) vm_.setPrompt(ss(prompt_->toPlainText()));
    });
    connect(language_, &QComboBox::activated, this, [this](int i) { vm_.setLanguage(ss(language_->itemText(i))); });
    connect(mute_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) vm_.setMuteWhileRecording(on);
    });
    connect(systemAudio_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) vm_.setRecordSystemAudio(on);
    });
    connect(addApplication_, &QPushButton::clicked, this, &ModeDetailView::chooseApplication);
    connect(edit, &QPushButton::clicked, this, &ModeDetailView::chooseApplication);
    connect(clear, &QPushButton::clicked, this, [this] { vm_.clearApplication(); });
    connect(website_, &QLineEdit::textEdited, this, [this](const QString& s) { vm_.setActivationWebsite(ss(s)); });
    connect(delete_, &QPushButton::clicked, this, [this] { vm_.requestDelete(); });
    // Save and cancel end the editing; the view is replaced, so they run after this click.
    connect(cancel, &QPushButton::clicked, this, [this] {
        QMetaObject::invokeMethod(this, [this] { vm_.cancel(); }, Qt::QueuedConnection);
    });
    connect(save, &QPushButton::clicked, this, [this] {
        QMetaObject::invokeMethod(this, [this] { vm_.save(); }, Qt::QueuedConnection);
    });

    changed_ = vm_.changed.subscribe([this] { refresh(); });
    refresh();
}

void ModeDetailView::rebuildTypeList() {
    while (auto* item = typeRows_->takeAt(0)) {
        if (auto* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
    for (const auto& item : vm_.modeTypes()) {
        typeRows_->addWidget(new TypeRow(item, item.name == vm_.selectedModeType.get(), [this, item] {
            QMetaObject::invokeMethod(this, [this, item] { vm_.chooseModeType(item); }, Qt::QueuedConnection);
        }));
    }
}

void ModeDetailView::refresh() {
    refreshing_ = true;
    const Mode& m = vm_.mode.get();
    if (ss(name_->text()) != m.name) name_->setText(qs(m.name));
    typeTrigger_->setText(qs(vm_.selectedModeType.get()));
    typeDescription_->setText(qs(vm_.selectedTypeDescription()));
    typeDescription_->setVisible(!vm_.isDropdownOpen.get());
    const bool open = vm_.isDropdownOpen.get();
    if (open && (!listOpen_ || listSelection_ != vm_.selectedModeType.get())) {
        rebuildTypeList();
        listSelection_ = vm_.selectedModeType.get();
    }
    listOpen_ = open;
    typeList_->setVisible(open);
    if (ss(prompt_->toPlainText()) != m.prompt) prompt_->setPlainText(qs(m.prompt));
    language_->setCurrentText(qs(m.language));
    mute_->setChecked(m.muteWhileRecording);
    systemAudio_->setChecked(m.recordSystemAudio);
    const std::string app = vm_.applicationDisplayName();
    addApplication_->setVisible(app.empty());
    applicationRow_->setVisible(!app.empty());
    applicationName_->setText(qs(app));
    if (ss(website_->text()) != m.activationWebsite) website_->setText(qs(m.activationWebsite));
    refreshing_ = false;

    if (vm_.showingDeleteConfirmation.get())
        QMetaObject::invokeMethod(this, [this] { confirmDelete(); }, Qt::QueuedConnection);
    if (vm_.showIncompatibleSystemAudioAlert.get()) {
        QMetaObject::invokeMethod(
            this,
            [this] {
                if (!vm_.showIncompatibleSystemAudioAlert.get()) return;
                QMessageBox::warning(this, "System Audio", ModeDetailViewModel::kIncompatibleSystemAudioText);
                vm_.dismissIncompatibleSystemAudioAlert();
            },
            Qt::QueuedConnection);
    }
}

void ModeDetailView::chooseApplication() {
    ApplicationChooser chooser(vm_.installedApplications(), this);
    if (chooser.exec() != QDialog::Accepted || chooser.chosen().empty()) return;
    vm_.chooseApplication(chooser.chosen());
    // The chosen name replaces the button near the bottom edge; bring it into view once laid out.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (auto* scroll = findChild<QScrollArea*>()) scroll->ensureWidgetVisible(applicationRow_, 0, 24);
        },
        Qt::QueuedConnection);
}

void ModeDetailView::confirmDelete() {
    if (!vm_.showingDeleteConfirmation.get()) return;
    QMessageBox box(QMessageBox::Warning, "Delete Mode", qs(vm_.deleteConfirmationText()), QMessageBox::NoButton, this);
    box.addButton("Cancel", QMessageBox::RejectRole);
    auto* confirm = box.addButton("Confirm", QMessageBox::DestructiveRole);
    box.exec();
    if (box.clickedButton() == confirm) {
        vm_.confirmDelete();
    } else {
        vm_.cancelDelete();
    }
}

}  // namespace vocle
