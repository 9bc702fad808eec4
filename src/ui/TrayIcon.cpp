#include "ui/TrayIcon.h"

#include <QAction>

#include "foundation/Log.h"
#include "ui/Theme.h"

namespace vocle::ui {

TrayIcon::TrayIcon(StatusItemController& controller, QObject* parent)
    : QObject(parent), controller_(controller), menu_(std::make_unique<QMenu>()),
      tray_(std::make_unique<QSystemTrayIcon>()) {
    menu_->setObjectName("TrayMenu");
    tray_->setToolTip(StatusItemController::kTooltip);
    tray_->setContextMenu(menu_.get());
    // Shortcuts may have changed since the menu was last shown.
    connect(menu_.get(), &QMenu::aboutToShow, this, [this] { controller_.refreshShortcuts(); });
    changed_ = controller_.changed.subscribe([this] { rebuild(); });
    rebuild();
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        log("Tray: no system tray on this desktop; the menu is reachable from the main window's Dictation menu");
    tray_->show();
}

TrayIcon::~TrayIcon() = default;

void TrayIcon::rebuild() {
    menu_->clear();
    for (const auto& entry : controller_.menu()) {
        if (entry.separator) {
            menu_->addSeparator();
            continue;
        }
        QString text = QString::fromStdString(entry.title);
        if (!entry.shortcutText.empty()) text += "\t" + QString::fromStdString(entry.shortcutText);
        QAction* action = menu_->addAction(text);
        action->setEnabled(entry.enabled);
        const auto which = entry.action;
        connect(action, &QAction::triggered, this, [this, which] { controller_.trigger(which); });
    }
    recordingIcon_ = controller_.isRecording();
    tray_->setIcon(recordingIcon_ ? Theme::originalIcon("tray-recording") : Theme::icon("tray", Theme::kText));
}

}  // namespace vocle::ui
