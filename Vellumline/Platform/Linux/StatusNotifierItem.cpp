#include "Vellumline/Platform/Linux/StatusNotifierItem.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QImage>
#include <QPixmap>
#include <QtEndian>

namespace vellumline {

namespace {

const QString watcherName = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString itemPath = QStringLiteral("/StatusNotifierItem");

QDBusMessage watcherCall(const QString& interface, const QString& method) {
    return QDBusMessage::createMethodCall(watcherName, watcherPath, interface, method);
}

StatusNotifierImage travelling(const QPixmap& pixmap) {
    QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
    StatusNotifierImage result{image.width(), image.height(), {}};
    result.pixels.reserve(image.sizeInBytes());
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const quint32 pixel = qToBigEndian<quint32>(line[x]);
            result.pixels.append(reinterpret_cast<const char*>(&pixel), sizeof pixel);
        }
    }
    return result;
}

} // namespace

QDBusArgument& operator<<(QDBusArgument& argument, const StatusNotifierImage& image) {
    argument.beginStructure();
    argument << image.width << image.height << image.pixels;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, StatusNotifierImage& image) {
    argument.beginStructure();
    argument >> image.width >> image.height >> image.pixels;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const StatusNotifierToolTip& toolTip) {
    argument.beginStructure();
    argument << toolTip.iconName << toolTip.images << toolTip.title << toolTip.description;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, StatusNotifierToolTip& toolTip) {
    argument.beginStructure();
    argument >> toolTip.iconName >> toolTip.images >> toolTip.title >> toolTip.description;
    argument.endStructure();
    return argument;
}

StatusNotifierItem::StatusNotifierItem(QDBusConnection bus, QObject* parent)
    : QObject(parent), bus_(std::move(bus)) {
    qDBusRegisterMetaType<StatusNotifierImage>();
    qDBusRegisterMetaType<StatusNotifierImages>();
    qDBusRegisterMetaType<StatusNotifierToolTip>();
    new StatusNotifierItemAdaptor(this);
}

void StatusNotifierItem::start() {
    if (!bus_.isConnected()) {
        setShown(false);
        return;
    }
    bus_.registerObject(itemPath, this, QDBusConnection::ExportAdaptors);
    // A watcher may run without a host, and hosts come and go.
    bus_.connect(watcherName, watcherPath, watcherName, QStringLiteral("StatusNotifierHostRegistered"), this,
                 SLOT(hostRegistered()));
    auto* watcher =
        new QDBusServiceWatcher(watcherName, bus_, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, &StatusNotifierItem::askForHost);
    connect(watcher, &QDBusServiceWatcher::serviceUnregistered, this, [this] { setShown(false); });

    QDBusMessage question = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
    question << watcherName;
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(question), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<bool> answer = *call;
        call->deleteLater();
        if (!answer.isError() && answer.value())
            askForHost();
        else
            setShown(false);
    });
}

void StatusNotifierItem::askForHost() {
    QDBusMessage question =
        watcherCall(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    question << watcherName << QStringLiteral("IsStatusNotifierHostRegistered");
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(question), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<QDBusVariant> answer = *call;
        call->deleteLater();
        if (!answer.isError() && answer.value().variant().toBool())
            registerWithHost();
        else
            setShown(false);
    });
}

void StatusNotifierItem::hostRegistered() {
    registerWithHost();
}

void StatusNotifierItem::registerWithHost() {
    QDBusMessage call = watcherCall(watcherName, QStringLiteral("RegisterStatusNotifierItem"));
    call << bus_.baseService();
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* done) {
        const bool taken = !done->isError();
        done->deleteLater();
        setShown(taken);
    });
}

void StatusNotifierItem::setShown(bool shown) {
    if (std::exchange(isKnown_, true) && isShown_ == shown)
        return;
    isShown_ = shown;
    Q_EMIT shownChanged();
}

void StatusNotifierItem::setIcon(const QIcon& icon) {
    images_.clear();
    for (const int side : {16, 22, 24, 32, 48, 64})
        images_.append(travelling(icon.pixmap(QSize(side, side), 1.0)));
    Q_EMIT iconChanged();
}

void StatusNotifierItem::setLabel(const QString& label) {
    if (std::exchange(label_, label) != label)
        Q_EMIT labelChanged();
}

StatusNotifierItemAdaptor::StatusNotifierItemAdaptor(StatusNotifierItem* item)
    : QDBusAbstractAdaptor(item), item_(item) {
    connect(item, &StatusNotifierItem::iconChanged, this, &StatusNotifierItemAdaptor::NewIcon);
    connect(item, &StatusNotifierItem::labelChanged, this, &StatusNotifierItemAdaptor::NewTitle);
    connect(item, &StatusNotifierItem::labelChanged, this, &StatusNotifierItemAdaptor::NewToolTip);
}

void StatusNotifierItemAdaptor::Activate(int /*x*/, int /*y*/) {
    Q_EMIT item_->activated();
}

void StatusNotifierItemAdaptor::SecondaryActivate(int /*x*/, int /*y*/) {
    Q_EMIT item_->activated();
}

void StatusNotifierItemAdaptor::ContextMenu(int /*x*/, int /*y*/) {
    Q_EMIT item_->activated();
}

void StatusNotifierItemAdaptor::Scroll(int /*delta*/, const QString& /*orientation*/) {
    // Nothing of the program scrolls; the protocol requires the method.
}

} // namespace vellumline
