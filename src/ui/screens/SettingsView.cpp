#include "ui/screens/SettingsView.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QStyle>
#include <QTimer>

#include <cmath>

#include "ui/screens/KeyCapsView.h"
#include "ui/screens/ScreenKit.h"
#include "ui/screens/ShortcutPickerSheet.h"

namespace vocle {

using namespace screens;

namespace {

QHBoxLayout* row(QVBoxLayout* into, const QString& title) {
    auto* r = new QHBoxLayout;
    r->addWidget(label(title));
    r->addStretch();
    into->addLayout(r);
    return r;
}

}  // namespace

SettingsView::SettingsView(SettingsViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* page = scrollingPage(this);
    header(page, "Settings");
    loading_ = label(SettingsViewModel::kLoadingText, "secondary");
    page->addWidget(loading_);
    content_ = new QWidget;
    auto* layout = new QVBoxLayout(content_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    page->addWidget(content_);
    page->addStretch();

    auto* shortcuts = section(layout, "Shortcuts");
    toggleBox_ = new KeyCapsView(nullptr, true);
    toggleBox_->setAccessibleName("Toggle Recording On/Off");
    row(shortcuts, "Toggle Recording On/Off")->addWidget(toggleBox_);
    toggleWarning_ = paragraph("", "warning");
    shortcuts->addWidget(toggleWarning_);
    cancelBox_ = new KeyCapsView(nullptr, true);
    cancelBox_->setAccessibleName("Cancel Recording");
    row(shortcuts, "Cancel Recording")->addWidget(cancelBox_);
    cancelWarning_ = paragraph("", "warning");
    shortcuts->addWidget(cancelWarning_);
    // The portal binds the toggle only: where the cancel key is not bound, say where cancelling is.
    cancelNote_ = paragraph(SettingsViewModel::kCancelFromTrayText, "caption");
    shortcuts->addWidget(cancelNote_);
    connect(toggleBox_, &KeyCapsView::clicked, this, &SettingsView::openTogglePicker);
    connect(cancelBox_, &KeyCapsView::clicked, this, &SettingsView::openCancelPicker);
    // Compositors that bind keys themselves: the lines to add, built from the shortcuts above.
    compositorNote_ = paragraph("", "caption");
    shortcuts->addWidget(compositorNote_);
    compositorLines_ = new QLabel;
    compositorLines_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    compositorLines_->setFont(QFont("monospace"));
    compositorLines_->setAccessibleName("Compositor key bindings");
    auto* linesRow = new QHBoxLayout;
    linesRow->addWidget(compositorLines_, 1);
    compositorCopy_ = new QPushButton("Copy");
    compositorCopy_->setAccessibleName("Copy key bindings");
    linesRow->addWidget(compositorCopy_, 0, Qt::AlignTop);
    shortcuts->addLayout(linesRow);
    connect(compositorCopy_, &QPushButton::clicked, this, [this] {
        vm_.copyCompositorBindings();
        compositorCopy_->setText("Copied");
    });
    // GNOME without the portal: our entry in its keyboard shortcuts.
    addToGnome_ = button(SettingsViewModel::kAddToGnomeTitle);
    auto* gnomeRow = new QHBoxLayout;
    gnomeRow->addWidget(addToGnome_);
    gnomeRow->addStretch();
    shortcuts->addLayout(gnomeRow);
    gnomeStatus_ = paragraph("", "caption");
    shortcuts->addWidget(gnomeStatus_);
    connect(addToGnome_, &QPushButton::clicked, this, [this] { vm_.addToGnomeKeyboardShortcuts(); });
    // Desktops that run the toggle through vocle-cli: the command to bind.
    handNote_ = paragraph("", "caption");
    shortcuts->addWidget(handNote_);
    handCommand_ = new QLabel;
    handCommand_->setTextFormat(Qt::PlainText);
    handCommand_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    handCommand_->setFont(QFont("monospace"));
    handCommand_->setWordWrap(true);
    auto* handRow = new QHBoxLayout;
    handRow->addWidget(handCommand_, 1);
    handCopy_ = new QPushButton("Copy");
    handCopy_->setAccessibleName("Copy command");
    handRow->addWidget(handCopy_, 0, Qt::AlignTop);
    shortcuts->addLayout(handRow);
    connect(handCopy_, &QPushButton::clicked, this, [this] {
        vm_.copyHandBindCommand();
        handCopy_->setText("Copied");
    });

    auto* input = section(layout, "Input Device");
    useDefault_ = new QCheckBox("Use system default device");
    input->addWidget(useDefault_);
    devices_ = new QComboBox;
    devices_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    devices_->setMinimumContentsLength(24);
    row(input, "Microphone")->addWidget(devices_);
    deviceNote_ = paragraph("", "caption");
    input->addWidget(deviceNote_);
    connect(useDefault_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) vm_.setUseSystemDefault(on);
    });
    connect(devices_, &QComboBox::activated, this, [this](int index) {
        if (refreshing_) return;
        const std::string name = ss(devices_->itemData(index).toString());
        // The "System default" entry carries no device name.
        if (name.empty()) {
            vm_.setUseSystemDefault(true);
        } else {
            vm_.selectInputDevice(name);
        }
    });

    auto* sound = section(layout, "Sound Effects");
    soundEffects_ = new QCheckBox("Enable sound effects");
    sound->addWidget(soundEffects_);
    auto* volumeRow = row(sound, "Volume");
    auto* low = new QLabel;
    low->setPixmap(symbolPixmap("speaker", 16));
    volume_ = new QSlider(Qt::Horizontal);
    volume_->setRange(0, 100);
    volume_->setMinimumWidth(200);
    auto* high = new QLabel;
    high->setPixmap(symbolPixmap("speaker.wave.3", 16));
    volumeRow->addWidget(low);
    volumeRow->addWidget(volume_);
    volumeRow->addWidget(high);
    connect(soundEffects_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) vm_.setEnableSoundEffects(on);
    });
    // The file is written when the slider is let go, not on every step of a drag.
    connect(volume_, &QSlider::sliderReleased, this, [this] { vm_.setVolume(volume_->value() / 100.0); });
    connect(volume_, &QSlider::valueChanged, this, [this](int v) {
        if (!refreshing_ && !volume_->isSliderDown()) vm_.setVolume(v / 100.0);
    });

    auto* preview = section(layout, "Live Preview");
    livePreview_ = new QCheckBox("Show the words as you speak");
    preview->addWidget(livePreview_);
    connect(livePreview_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) vm_.setShowLivePreview(on);
    });

    auto* startup = section(layout, "Startup");
    startAtLogin_ = new QCheckBox("Start Vocle at login");
    startup->addWidget(startAtLogin_);
    connect(startAtLogin_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) vm_.setStartAtLogin(on);
    });
    error_ = paragraph("", "error");
    layout->addWidget(error_);

    changed_ = vm_.changed.subscribe([this] { refresh(); });
    // The sheet runs its own event loop: open it once the request's caller has returned.
    pickerRequest_ = vm_.openPicker.subscribe([this](bool toggle) {
        QTimer::singleShot(0, this,
                           toggle ? &SettingsView::openTogglePicker : &SettingsView::openCancelPicker);
    });
    refresh();
}

void SettingsView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    vm_.load();
    vm_.checkPickerRequest();
}

void SettingsView::refresh() {
    refreshing_ = true;
    loading_->setVisible(vm_.isLoading.get());
    content_->setVisible(!vm_.isLoading.get());
    toggleBox_->setParts(vm_.toggleShortcutParts());
    cancelBox_->setParts(vm_.cancelShortcutParts());
    const auto lines = vm_.compositorBindingLines();
    QStringList text;
    for (const auto& line : lines) text << qs(line);
    compositorLines_->setText(text.join('\n'));
    // The path stays on one line (a word joiner after each slash): a break after "~/.config/" reads as two
    // places.
    QString place = qs(vm_.compositorBindingPlace());
    place.replace('/', QStringLiteral("/\u2060"));
    compositorNote_->setText("Your compositor runs the shortcuts. Add these lines to " + place +
                             " and reload it:");
    compositorCopy_->setText("Copy");
    for (QWidget* w : {static_cast<QWidget*>(compositorNote_), static_cast<QWidget*>(compositorLines_),
                       static_cast<QWidget*>(compositorCopy_)})
        w->setVisible(!lines.empty());
    cancelNote_->setVisible(vm_.showsCancelFromTrayNote());
    const bool gnome = vm_.offersGnomeKeybinding();
    addToGnome_->setVisible(gnome);
    const std::string gnomeStatus = vm_.gnomeKeybindingStatus.get();
    gnomeStatus_->setText(qs(gnomeStatus));
    gnomeStatus_->setVisible(gnome && !gnomeStatus.empty());
    const char* statusRole = vm_.gnomeKeybindingProblem.get() ? "warning" : "caption";
    if (gnomeStatus_->property("role").toString() != statusRole) {
        setRole(gnomeStatus_, statusRole);
        gnomeStatus_->style()->unpolish(gnomeStatus_);
        gnomeStatus_->style()->polish(gnomeStatus_);
    }
    const std::string command = vm_.handBindCommand();
    handNote_->setText(qs(vm_.handBindNote()));
    handCommand_->setText(qs(command));
    handCopy_->setText("Copy");
    for (QWidget* w : {static_cast<QWidget*>(handNote_), static_cast<QWidget*>(handCommand_),
                       static_cast<QWidget*>(handCopy_)})
        w->setVisible(!command.empty() && vm_.showsHandBindCommand());
    const auto toggleWarning = vm_.toggleShortcutWarning();
    toggleWarning_->setText(qs(toggleWarning.value_or("")));
    toggleWarning_->setVisible(toggleWarning.has_value());
    const auto cancelWarning = vm_.cancelShortcutWarning();
    cancelWarning_->setText(qs(cancelWarning.value_or("")));
    cancelWarning_->setVisible(cancelWarning.has_value());
    useDefault_->setChecked(vm_.useSystemDefault.get());

    devices_->clear();
    const bool useDefault = vm_.useSystemDefault.get();
    if (useDefault) devices_->addItem("System default", QString());
    for (const auto& name : vm_.availableDevices.get()) devices_->addItem(qs(name), qs(name));
    if (vm_.inputDeviceDisconnected())
        devices_->addItem(qs(vm_.inputDevice.get() + SettingsViewModel::kNotConnectedSuffix),
                          qs(vm_.inputDevice.get()));
    const int current = useDefault ? 0 : devices_->findData(qs(vm_.inputDevice.get()));
    devices_->setCurrentIndex(std::max(0, current));
    const auto availability = vm_.inputAvailability.get();
    devices_->setEnabled(availability == InputAvailability::available);
    if (availability == InputAvailability::noSoundServer) {
        deviceNote_->setText(SettingsViewModel::kNoSoundServerText);
    } else if (availability == InputAvailability::noInputDevice) {
        deviceNote_->setText(SettingsViewModel::kNoInputDeviceText);
    } else {
        deviceNote_->setText(
            vm_.inputDeviceDisconnected() && !useDefault
                ? "This microphone is not connected. Recording uses the system default until it is back."
                : "");
    }
    deviceNote_->setVisible(!deviceNote_->text().isEmpty());
    // A missing sound server or microphone is a warning; a disconnected choice only a note.
    const char* noteRole = availability == InputAvailability::available ? "caption" : "warning";
    if (deviceNote_->property("role").toString() != noteRole) {
        setRole(deviceNote_, noteRole);
        deviceNote_->style()->unpolish(deviceNote_);
        deviceNote_->style()->polish(deviceNote_);
    }

    soundEffects_->setChecked(vm_.enableSoundEffects.get());
    volume_->setEnabled(vm_.enableSoundEffects.get());
    if (!volume_->isSliderDown()) volume_->setValue(static_cast<int>(std::lround(vm_.volume.get() * 100)));
    startAtLogin_->setChecked(vm_.startAtLogin.get());
    livePreview_->setChecked(vm_.showLivePreview.get());
    error_->setText(qs(vm_.errorMessage.get().value_or("")));
    error_->setVisible(vm_.errorMessage.get().has_value());
    refreshing_ = false;
}

void SettingsView::openTogglePicker() {
    vm_.setShowingShortcutPicker(true);
    auto picker = vm_.makeShortcutPicker();
    ShortcutPickerSheet sheet(*picker, this);
    sheet.exec();
    vm_.setShowingShortcutPicker(false);
    refresh();
}

void SettingsView::openCancelPicker() {
    vm_.setShowingCancelPicker(true);
    auto picker = vm_.makeCancelPicker();
    CancelPickerSheet sheet(*picker, this);
    sheet.exec();
    vm_.setShowingCancelPicker(false);
    refresh();
}

}  // namespace vocle
