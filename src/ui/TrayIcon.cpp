#include "ui/TrayIcon.h"

#include <QAction>
#include <QPainter>

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
    QIcon icon = recordingIcon_ ? Theme::originalIcon("tray-recording") : Theme::icon("tray", Theme::kText);
    if (controller_.failedDictations() > 0) icon = withCount(icon, controller_.failedDictations());
    tray_->setIcon(icon);
    tray_->setToolTip(QString::fromStdString(controller_.tooltip()));
}

QIcon TrayIcon::withCount(const QIcon& base, size_t count) {
    // The number in an amber badge at the lower right, drawn at each size the tray may ask for.
    QIcon out;
    for (int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap = base.pixmap(size, size);
        QPainter p(&pixmap);
        p.setRenderHint(QPainter::Antialiasing);
        const int d = std::max(9, size * 5 / 8);
        const QRectF badge(size - d, size - d, d, d);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0xff, 0x9f, 0x0a));
        p.drawEllipse(badge);
        QFont f = p.font();
        f.setPixelSize(std::max(7, d * 3 / 4));
        f.setBold(true);
        p.setFont(f);
        p.setPen(Qt::black);
        p.drawText(badge, Qt::AlignCenter, count > 9 ? QStringLiteral("9+") : QString::number(count));
        p.end();
        out.addPixmap(pixmap);
    }
    return out;
}

}  // namespace vocle::ui
