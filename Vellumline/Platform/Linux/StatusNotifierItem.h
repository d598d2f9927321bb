#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QPoint>
#include <QString>

namespace vellumline {

/// One size of an icon as it travels: pixels of four bytes each, alpha first, in network byte order
/// (StatusNotifierItem, "Icons").
struct StatusNotifierImage {
    int width = 0;
    int height = 0;
    QByteArray pixels;
};
using StatusNotifierImages = QList<StatusNotifierImage>;

struct StatusNotifierToolTip {
    QString iconName;
    StatusNotifierImages images;
    QString title;
    QString description;
};

QDBusArgument& operator<<(QDBusArgument& argument, const StatusNotifierImage& image);
const QDBusArgument& operator>>(const QDBusArgument& argument, StatusNotifierImage& image);
QDBusArgument& operator<<(QDBusArgument& argument, const StatusNotifierToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, StatusNotifierToolTip& toolTip);

/// An item of the StatusNotifierItem protocol on the session bus. Spoken here rather than by the toolkit,
/// which decides once in the life of a process whether a host is there, and so never shows an item to a host
/// that came up after it. Main thread only; no call on the bus is waited for.
class StatusNotifierItem : public QObject {
    Q_OBJECT
  public:
    explicit StatusNotifierItem(QDBusConnection bus, QObject* parent = nullptr);

    /// Watches for a host from now on, and registers the item with every one that comes.
    void start();
    /// Whether a host shows the item.
    bool isShown() const { return isShown_; }

    void setIcon(const QIcon& icon);
    void setLabel(const QString& label);

    const StatusNotifierImages& images() const { return images_; }
    const QString& label() const { return label_; }

  Q_SIGNALS:
    /// `isShown` differs, or is known for the first time.
    void shownChanged();
    /// The user pressed the item, or asked for its menu.
    void activated();

    void iconChanged();
    void labelChanged();

  private:
    void askForHost();
    void registerWithHost();
    void setShown(bool shown);

    QDBusConnection bus_;
    bool isKnown_ = false;
    bool isShown_ = false;
    StatusNotifierImages images_;
    QString label_;

  private Q_SLOTS:
    void hostRegistered();
};

/// The D-Bus face of StatusNotifierItem; the protocol fixes the names.
class StatusNotifierItemAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category CONSTANT)
    Q_PROPERTY(QString Id READ id CONSTANT)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status CONSTANT)
    Q_PROPERTY(int WindowId READ windowId CONSTANT)
    Q_PROPERTY(QString IconName READ noName CONSTANT)
    Q_PROPERTY(QString IconAccessibleDesc READ title)
    Q_PROPERTY(vellumline::StatusNotifierImages IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ noName CONSTANT)
    Q_PROPERTY(vellumline::StatusNotifierImages OverlayIconPixmap READ noImages CONSTANT)
    Q_PROPERTY(QString AttentionIconName READ noName CONSTANT)
    Q_PROPERTY(vellumline::StatusNotifierImages AttentionIconPixmap READ noImages CONSTANT)
    Q_PROPERTY(QString AttentionMovieName READ noName CONSTANT)
    Q_PROPERTY(vellumline::StatusNotifierToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu CONSTANT)
    Q_PROPERTY(QDBusObjectPath Menu READ menu CONSTANT)
  public:
    explicit StatusNotifierItemAdaptor(StatusNotifierItem* item);

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const { return QStringLiteral("vellumline"); }
    QString title() const { return item_->label(); }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    QString noName() const { return {}; }
    StatusNotifierImages iconPixmap() const { return item_->images(); }
    StatusNotifierImages noImages() const { return {}; }
    StatusNotifierToolTip toolTip() const { return {{}, {}, item_->label(), {}}; }
    bool itemIsMenu() const { return false; }
    // Hosts that ask for a menu by D-Bus find none, and call ContextMenu instead.
    QDBusObjectPath menu() const { return QDBusObjectPath(QStringLiteral("/NO_DBUSMENU")); }

  public Q_SLOTS:
    // NOLINTBEGIN(readability-identifier-naming)
    void Activate(int x, int y);
    void SecondaryActivate(int x, int y);
    void ContextMenu(int x, int y);
    void Scroll(int delta, const QString& orientation);
    // NOLINTEND(readability-identifier-naming)

  Q_SIGNALS:
    // NOLINTBEGIN(readability-identifier-naming)
    void NewIcon();
    void NewTitle();
    void NewToolTip();
    // NOLINTEND(readability-identifier-naming)

  private:
    StatusNotifierItem* item_;
};

} // namespace vellumline

Q_DECLARE_METATYPE(vellumline::StatusNotifierImage)
Q_DECLARE_METATYPE(vellumline::StatusNotifierToolTip)
