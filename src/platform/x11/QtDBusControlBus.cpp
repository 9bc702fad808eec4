#include "platform/x11/QtDBusControlBus.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QMetaObject>
#include <QObject>
#include <QString>
#include <atomic>

#include "foundation/Log.h"

namespace vocle {

namespace {

// The object exported at kControlObjectPath; its slots are the bus methods.
class ControlObject final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vocle.Vocle")

  public:
    explicit ControlObject(ControlHandlers handlers) : handlers_(std::move(handlers)) {}

  public slots:
    void Toggle() { later(handlers_.toggle); }
    void Cancel() { later(handlers_.cancel); }
    void Activate() { later(handlers_.activate); }
    QString State() {
        return QString::fromStdString(handlers_.state ? handlers_.state() : std::string(kControlStateIdle));
    }

  private:
    // The caller gets its reply before the handler runs.
    void later(const std::function<void()>& handler) {
        if (!handler) return;
        QMetaObject::invokeMethod(this, [handler] { handler(); }, Qt::QueuedConnection);
    }
    ControlHandlers handlers_;
};

QString nextConnectionName() {
    static std::atomic<int> counter{0};
    return QStringLiteral("vocle-control-%1").arg(++counter);
}

}  // namespace

struct QtDBusControlBus::Connection {
    QString name;
    QDBusConnection bus;

    explicit Connection(const std::string& address)
        : name(nextConnectionName()),
          bus(address.empty() ? QDBusConnection::connectToBus(QDBusConnection::SessionBus, name)
                              : QDBusConnection::connectToBus(QString::fromStdString(address), name)) {}
    ~Connection() { QDBusConnection::disconnectFromBus(name); }
};

QtDBusControlBus::QtDBusControlBus(std::string busAddress)
    : connection_(std::make_unique<Connection>(busAddress)) {}

QtDBusControlBus::~QtDBusControlBus() {
    if (exported_ && connection_->bus.isConnected()) {
        connection_->bus.unregisterObject(QString::fromLatin1(kControlObjectPath));
        connection_->bus.unregisterService(QString::fromLatin1(kControlBusName));
    }
    exported_.reset();
    connection_.reset();
}

ControlBus::PublishResult QtDBusControlBus::publish(ControlHandlers handlers) {
    QDBusConnection& bus = connection_->bus;
    if (!bus.isConnected()) {
        log("❌ ControlBus: No session bus: ", bus.lastError().message().toStdString());
        return PublishResult::unavailable;
    }
    if (exported_) return PublishResult::published;
    auto object = std::make_unique<ControlObject>(std::move(handlers));
    // The object goes up before the name, so a caller that sees the name always finds the object.
    if (!bus.registerObject(QString::fromLatin1(kControlObjectPath), object.get(),
                            QDBusConnection::ExportAllSlots)) {
        log("❌ ControlBus: Could not export ", kControlObjectPath, ": ",
            bus.lastError().message().toStdString());
        return PublishResult::unavailable;
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply = bus.interface()->registerService(
        QString::fromLatin1(kControlBusName), QDBusConnectionInterface::DontQueueService,
        QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid()) {
        bus.unregisterObject(QString::fromLatin1(kControlObjectPath));
        log("❌ ControlBus: Could not claim ", kControlBusName, ": ", reply.error().message().toStdString());
        return PublishResult::unavailable;
    }
    if (reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        bus.unregisterObject(QString::fromLatin1(kControlObjectPath));
        log("ControlBus: ", kControlBusName, " is owned by another instance");
        return PublishResult::alreadyRunning;
    }
    exported_ = std::move(object);
    log("✅ ControlBus: Published ", kControlBusName, " at ", kControlObjectPath);
    return PublishResult::published;
}

ControlCallResult QtDBusControlBus::callRunningInstance(ControlMethod method) {
    QDBusConnection& bus = connection_->bus;
    if (!bus.isConnected()) {
        return {ControlCallResult::Outcome::noBus, {}, bus.lastError().message().toStdString()};
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(kControlBusName), QString::fromLatin1(kControlObjectPath),
        QString::fromLatin1(kControlInterface), QString::fromLatin1(controlMethodName(method)));
    const QDBusMessage reply = bus.call(call, QDBus::Block, kCallTimeoutMs);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        const QDBusError::ErrorType type = QDBusError(reply).type();
        const bool nobody = type == QDBusError::ServiceUnknown ||
                            reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner");
        return {nobody ? ControlCallResult::Outcome::noInstance : ControlCallResult::Outcome::failed, {},
                reply.errorMessage().toStdString()};
    }
    if (reply.type() != QDBusMessage::ReplyMessage) {
        return {ControlCallResult::Outcome::failed, {}, "no reply"};
    }
    ControlCallResult result{ControlCallResult::Outcome::ok, {}, {}};
    if (method == ControlMethod::state) {
        if (reply.arguments().isEmpty()) return {ControlCallResult::Outcome::failed, {}, "empty reply"};
        result.value = reply.arguments().front().toString().toStdString();
    }
    return result;
}

}  // namespace vocle

#include "QtDBusControlBus.moc"
