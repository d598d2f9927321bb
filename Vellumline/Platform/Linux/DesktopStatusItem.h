#pragma once

#include "Vellumline/Platform/Linux/StatusNotifierItem.h"
#include "Vellumline/Platform/StatusItem.h"

#include <QDBusConnection>
#include <QObject>
#include <memory>

class QSystemTrayIcon;

namespace vellumline {

/// The item in the panel of a Linux desktop: a StatusNotifierItem while a host for that is there, otherwise
/// an icon embedded by the older X11 protocol (freedesktop.org System Tray Protocol), which a tray that comes
/// later takes up too. Main thread only.
class DesktopStatusItem final : public QObject, public StatusItem {
    Q_OBJECT
  public:
    /// The ground of the desktop's panels, when it can be told.
    using PanelColor = std::function<std::optional<QColor>()>;

    explicit DesktopStatusItem(PanelColor panelColor = {},
                               QDBusConnection bus = QDBusConnection::sessionBus(),
                               QObject* parent = nullptr);
    ~DesktopStatusItem() override;

    void show() override;
    void setImage(const Image& image) override;
    void setAccessibilityLabel(const QString& label) override;
    void setHighlighted(bool highlighted) override;
    /// Only of an embedded icon; hosts of StatusNotifierItems keep it to themselves.
    std::optional<QRect> frame() const override;

  private:
    void hostChanged();
    void chooseColor();
    void lookAgain();
    void apply();
    void pressed();

    PanelColor panelColor_;
    QColor color_;
    StatusNotifierItem notifier_;
    std::unique_ptr<QSystemTrayIcon> embedded_;
    Image image_;
    QString label_;
    bool highlighted_ = false;
};

} // namespace vellumline
