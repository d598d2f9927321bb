#pragma once

#include "Vellumline/Platform/Accessibility.h"
#include "Vellumline/Platform/Clock.h"
#include "tests/fakes/CallLog.h"

#include <QHash>
#include <functional>
#include <optional>

namespace vellumline {

/// A scripted node: what is not set answers noValue.
class FakeElement final : public AccessibilityNode {
  public:
    explicit FakeElement(QString name) : name(std::move(name)) {}

    FakeElement& set(const QString& attribute, AccessibilityValue value) {
        attributes.insert(attribute, AccessibilityResult<AccessibilityValue>{std::move(value)});
        return *this;
    }
    FakeElement& fail(const QString& attribute, AccessibilityError error) {
        attributes.insert(attribute, AccessibilityResult<AccessibilityValue>{error});
        return *this;
    }
    FakeElement& setSettable(const QString& attribute, bool answer) {
        settable.insert(attribute, AccessibilityResult<bool>{answer});
        return *this;
    }
    FakeElement& failSettable(const QString& attribute, AccessibilityError error) {
        settable.insert(attribute, AccessibilityResult<bool>{error});
        return *this;
    }

    QString name; ///< As the call log shows it.
    QHash<QString, AccessibilityResult<AccessibilityValue>> attributes;
    QHash<QString, AccessibilityResult<bool>> settable;
    bool takesAttributes = true; ///< What setAttribute answers.
};

/// Other programs as the test scripts them. In the call log: "isProcessTrusted", "requestTrust",
/// "applicationElement(42)", "setMessagingTimeout(application 42, 250)",
/// "setAttribute(application 42, AXManualAccessibility, true)", "copyAttribute(field, AXRole)",
/// "isAttributeSettable(field, AXValue)".
class FakeAccessibility final : public Accessibility {
  public:
    explicit FakeAccessibility(QStringList* sharedLog = nullptr, Clock* clock = nullptr)
        : log_(sharedLog), clock_(clock) {}

    bool isProcessTrusted() const override;
    void requestTrust() override;
    AccessibilityElement applicationElement(qint64 processIdentifier) override;
    void setMessagingTimeout(const AccessibilityElement& element, std::chrono::milliseconds timeout) override;
    QCoro::Task<AccessibilityResult<AccessibilityValue>> copyAttribute(AccessibilityElement element,
                                                                       QString attribute) override;
    QCoro::Task<bool> setAttribute(AccessibilityElement element, QString attribute, bool value) override;
    QCoro::Task<AccessibilityResult<bool>> isAttributeSettable(AccessibilityElement element,
                                                               QString attribute) override;

    /// The root of a program, to be scripted; made on first use.
    FakeElement& application(qint64 processIdentifier);
    /// A new node that has the focus in that program.
    FakeElement& focus(qint64 processIdentifier, const QString& name);
    /// Nothing in that program has the focus any more.
    void unfocus(qint64 processIdentifier) {
        application(processIdentifier)
            .fail(AccessibilityAttribute::focusedElement, AccessibilityError::noValue);
    }

    bool trusted = true;
    std::optional<bool> trustedAfterRequest; ///< What the user answers to the request; unset: nothing yet.
    /// How long every call waits on the clock. One that is longer than the messaging time-out ends there,
    /// with cannotComplete.
    std::chrono::milliseconds delay{0};
    /// Runs before an attribute is answered: what the user does meanwhile.
    std::function<void()> beforeAnswer;

    const QStringList& calls() const { return log_.calls(); }
    /// The calls that ask the other program something.
    qsizetype messages() const { return messages_; }
    void clearCalls();

  private:
    QCoro::Task<bool> answersInTime();
    static const FakeElement* scripted(const AccessibilityElement& element);
    static QString nameOf(const AccessibilityElement& element);

    mutable CallLog log_;
    Clock* clock_;
    QHash<qint64, std::shared_ptr<FakeElement>> applications_;
    std::optional<std::chrono::milliseconds> timeout_;
    qsizetype messages_ = 0;
};

} // namespace vellumline
