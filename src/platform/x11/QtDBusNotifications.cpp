#include "platform/x11/QtDBusNotifications.h"

#include <map>

#include "foundation/Log.h"

// Qt last: its keyword macros would rewrite names in foundation/Signal.h.
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

namespace vocle {

namespace {

QString actionKey(size_t index) {
    return QStringLiteral("action-%1").arg(index);
}

class SignalReceiver : public QObject {
    Q_OBJECT
  public:
    std::map<uint, std::function<void(int)>> pending;

  public Q_SLOTS:
    void actionInvoked(uint id, const QString& key) {
        const auto it = pending.find(id);
        if (it == pending.end()) return;
        auto callback = it->second;
        if (!key.startsWith(QStringLiteral("action-"))) return;  // "default": the notice itself was clicked
        bool ok = false;
        const int index = key.mid(7).toInt(&ok);
        if (ok && callback) callback(index);
    }
    void notificationClosed(uint id, uint /*reason*/) { pending.erase(id); }
};

}  // namespace

struct QtDBusNotifications::Receiver {
    QDBusConnection bus;
    SignalReceiver receiver;
    bool subscribed = false;

    explicit Receiver(const std::string& address)
        : bus(address.empty() ? QDBusConnection::sessionBus()
                              : QDBusConnection::connectToBus(QString::fromStdString(address),
                                                              QStringLiteral("vocle-notifications"))) {
        if (!bus.isConnected()) return;
        subscribed = bus.connect(kService, kPath, kService, QStringLiteral("ActionInvoked"), &receiver,
                                 SLOT(actionInvoked(uint, QString))) &&
                     bus.connect(kService, kPath, kService, QStringLiteral("NotificationClosed"), &receiver,
                                 SLOT(notificationClosed(uint, uint)));
    }
};

QtDBusNotifications::QtDBusNotifications(std::string busAddress)
    : receiver_(std::make_unique<Receiver>(busAddress)) {}

QtDBusNotifications::~QtDBusNotifications() = default;

void QtDBusNotifications::notify(const DesktopNotice& notice, std::function<void(int)> onAction) {
    if (!receiver_->bus.isConnected()) {
        log("Desktop notification not shown (no session bus): ", notice.title);
        return;
    }
    QStringList actions;
    for (size_t i = 0; i < notice.actions.size(); ++i)
        actions << actionKey(i) << QString::fromStdString(notice.actions[i]);
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("vocle"));
    hints.insert(QStringLiteral("urgency"), QVariant::fromValue<uchar>(1));
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    call << QStringLiteral("Vocle") << uint(0) << QStringLiteral("vocle")
         << QString::fromStdString(notice.title) << QString::fromStdString(notice.body) << actions << hints
         << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(receiver_->bus.asyncCall(call), &receiver_->receiver);
    const std::string title = notice.title;
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished,
                     [this, watcher, title, onAction = std::move(onAction)] {
                         watcher->deleteLater();
                         QDBusPendingReply<uint> reply = *watcher;
                         if (reply.isError()) {
                             log("Desktop notification not shown: ", title, " (",
                                 reply.error().message().toStdString(), ")");
                             return;
                         }
                         if (onAction) receiver_->receiver.pending[reply.value()] = onAction;
                     });
}

}  // namespace vocle

#include "QtDBusNotifications.moc"
