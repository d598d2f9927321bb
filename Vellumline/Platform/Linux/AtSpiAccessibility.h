#pragma once

#include "Vellumline/Platform/Accessibility.h"
#include "Vellumline/Platform/Linux/AtSpiWire.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QHash>
#include <QObject>
#include <functional>
#include <memory>
#include <optional>

namespace vellumline {

/// The Linux desktop's accessibility tree (AT-SPI 2), spoken to directly over D-Bus: every call is
/// asynchronous with a time-out of its own, so that a hung program costs its time-out and nothing else, and
/// needs no thread. (The desktop's client library blocks its caller, and answers a hung program's calls with
/// empty values and no error.)
///
/// The described attributes are answered from roles, states and the Text interface: settable is the state
/// EDITABLE (the interface EditableText is missing in some programs that can be edited, and present in some
/// that cannot), a password field is the role PASSWORD_TEXT. A terminal, also one without a tree, answers as
/// text that cannot be set. Main thread only. Calls under way when it is destroyed end with an error.
class AtSpiAccessibility final : public QObject, public Accessibility {
    Q_OBJECT
  public:
    /// `activeWindowClass`: names the active window's program (both parts of WM_CLASS on X11).
    explicit AtSpiAccessibility(std::function<QStringList()> activeWindowClass,
                                QDBusConnection sessionBus = QDBusConnection::sessionBus(),
                                QObject* parent = nullptr);
    ~AtSpiAccessibility() override;

    /// Resolves when the accessibility bus was reached (true) or not (false), after 2 s at the latest.
    QCoro::Task<bool> ready();

    bool isProcessTrusted() const override;
    void requestTrust() override;
    AccessibilityElement applicationElement(qint64 processIdentifier) override;
    void setMessagingTimeout(const AccessibilityElement& element, std::chrono::milliseconds timeout) override;
    QCoro::Task<AccessibilityResult<AccessibilityValue>> copyAttribute(AccessibilityElement element,
                                                                       QString attribute) override;
    QCoro::Task<bool> setAttribute(AccessibilityElement element, QString attribute, bool value) override;
    QCoro::Task<AccessibilityResult<bool>> isAttributeSettable(AccessibilityElement element,
                                                               QString attribute) override;

    /// Whether a window class is a terminal emulator's, or another program's that takes Control-C as a
    /// command.
    static bool isTerminalClass(const QStringList& windowClass);

  Q_SIGNALS:
    /// The accessibility bus was reached or lost.
    void trustChanged();

  private Q_SLOTS:
    void focusEvent(const QDBusMessage& message);
    void busLost();

  private:
    struct Application;
    struct Node;
    struct Search;
    struct Selections {
        QDBusPendingCall count;
        QDBusPendingCall first;
    };

    QCoro::Task<void> connectToBus();
    QCoro::Task<QDBusMessage> call(atspi::Reference target, QString interface, QString method,
                                   QVariantList arguments, std::chrono::milliseconds timeout);
    QDBusPendingCall start(const atspi::Reference& target, const QString& interface, const QString& method,
                           const QVariantList& arguments, std::chrono::milliseconds timeout) const;
    QDBusPendingCall getProperty(const atspi::Reference& target, const QString& interface,
                                 const QString& name, std::chrono::milliseconds timeout) const;

    QCoro::Task<bool> locate(std::shared_ptr<Application> application);
    QCoro::Task<AccessibilityResult<AccessibilityValue>>
    focusedElement(std::shared_ptr<Application> application);
    QCoro::Task<std::optional<AccessibilityElement>>
    rememberedFocus(std::shared_ptr<Application> application);
    QCoro::Task<AccessibilityResult<AccessibilityValue>> searchFocus(std::shared_ptr<Search> search);
    QCoro::Task<QList<atspi::Reference>> activeFrames(std::shared_ptr<Application> application);
    QCoro::Task<void> searchBelow(atspi::Reference frame, std::shared_ptr<Search> search);
    QCoro::Task<QList<atspi::Reference>> visit(QList<atspi::Reference> nodes, atspi::Reference frame,
                                               std::shared_ptr<Search> search);
    QCoro::Task<QString> toolkitName(std::shared_ptr<Application> application);
    Selections askForSelections(const Node& node) const;
    QCoro::Task<AccessibilityResult<AccessibilityValue>> selectedRange(std::shared_ptr<const Node> node);
    QCoro::Task<AccessibilityResult<AccessibilityValue>> selectedText(std::shared_ptr<const Node> node);
    QCoro::Task<bool> neighbourIsSelected(std::shared_ptr<const Node> node);

    std::function<QStringList()> activeWindowClass_;
    QDBusConnection sessionBus_;
    std::optional<QDBusConnection> bus_;
    bool connecting_ = false;
    QHash<QString, qint64> processes_; ///< unique bus name → process; a unique name is never given twice
    QHash<QString, QString> toolkits_; ///< unique bus name → toolkit name
    QHash<qint64, std::weak_ptr<Application>> applications_;
    atspi::Reference lastFocus_;
};

} // namespace vellumline
