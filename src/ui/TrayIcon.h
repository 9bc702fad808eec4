#pragma once

#include "desktop/StatusItemController.h"

#include <memory>

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>

namespace vocle::ui {

// The tray icon (a StatusNotifierItem or XEmbed icon through Qt) with the menu of StatusItemController.
// Entries show the shortcut after a tab, as a hint only: the global shortcuts are the keyboard path.
class TrayIcon final : public QObject {
    Q_OBJECT
public:
    explicit TrayIcon(StatusItemController& controller, QObject* parent = nullptr);
    ~TrayIcon() override;

    QMenu* menu() const { return menu_.get(); }
    QSystemTrayIcon* trayIcon() const { return tray_.get(); }
    bool showsRecordingIcon() const { return recordingIcon_; }

private:
    void rebuild();
    static QIcon withCount(const QIcon& base, size_t count);

    StatusItemController& controller_;
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> tray_;
    Subscription changed_;
    bool recordingIcon_ = false;
};

}  // namespace vocle::ui
