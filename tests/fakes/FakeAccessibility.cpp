#include "tests/fakes/FakeAccessibility.h"

#include <algorithm>

namespace vellumline {

bool FakeAccessibility::isProcessTrusted() const {
    log_.add(QStringLiteral("isProcessTrusted"));
    return trusted;
}

void FakeAccessibility::requestTrust() {
    log_.add(QStringLiteral("requestTrust"));
    trusted = trustedAfterRequest.value_or(trusted);
}

AccessibilityElement FakeAccessibility::applicationElement(qint64 processIdentifier) {
    log_.add(QStringLiteral("applicationElement(%1)").arg(processIdentifier));
    application(processIdentifier);
    return applications_.value(processIdentifier);
}

void FakeAccessibility::setMessagingTimeout(const AccessibilityElement& element,
                                            std::chrono::milliseconds timeout) {
    log_.add(QStringLiteral("setMessagingTimeout(%1, %2)").arg(nameOf(element)).arg(timeout.count()));
    timeout_ = timeout;
}

QCoro::Task<AccessibilityResult<AccessibilityValue>>
FakeAccessibility::copyAttribute(AccessibilityElement element, QString attribute) {
    using Result = AccessibilityResult<AccessibilityValue>;
    ++messages_;
    log_.add(QStringLiteral("copyAttribute(%1, %2)").arg(nameOf(element), attribute));
    if (const auto meanwhile = beforeAnswer)
        meanwhile();
    const bool inTime = co_await answersInTime();
    if (!inTime)
        co_return Result{AccessibilityError::cannotComplete};
    const FakeElement* node = scripted(element);
    if (node == nullptr)
        co_return Result{AccessibilityError::failed};
    co_return node->attributes.value(attribute, Result{AccessibilityError::noValue});
}

QCoro::Task<bool> FakeAccessibility::setAttribute(AccessibilityElement element, QString attribute,
                                                  bool value) {
    ++messages_;
    const QString answer = value ? QStringLiteral("true") : QStringLiteral("false");
    log_.add(QStringLiteral("setAttribute(%1, %2, %3)").arg(nameOf(element), attribute, answer));
    const bool inTime = co_await answersInTime();
    const FakeElement* node = scripted(element);
    co_return inTime&& node != nullptr && node->takesAttributes;
}

QCoro::Task<AccessibilityResult<bool>> FakeAccessibility::isAttributeSettable(AccessibilityElement element,
                                                                              QString attribute) {
    using Result = AccessibilityResult<bool>;
    ++messages_;
    log_.add(QStringLiteral("isAttributeSettable(%1, %2)").arg(nameOf(element), attribute));
    const bool inTime = co_await answersInTime();
    if (!inTime)
        co_return Result{AccessibilityError::cannotComplete};
    const FakeElement* node = scripted(element);
    if (node == nullptr)
        co_return Result{AccessibilityError::failed};
    co_return node->settable.value(attribute, Result{AccessibilityError::noValue});
}

FakeElement& FakeAccessibility::application(qint64 processIdentifier) {
    std::shared_ptr<FakeElement>& root = applications_[processIdentifier];
    if (root == nullptr)
        root = std::make_shared<FakeElement>(QStringLiteral("application %1").arg(processIdentifier));
    return *root;
}

FakeElement& FakeAccessibility::focus(qint64 processIdentifier, const QString& name) {
    const auto element = std::make_shared<FakeElement>(name);
    application(processIdentifier).set(AccessibilityAttribute::focusedElement, AccessibilityElement(element));
    return *element;
}

void FakeAccessibility::clearCalls() {
    log_.clear();
    messages_ = 0;
}

QCoro::Task<bool> FakeAccessibility::answersInTime() {
    const std::chrono::milliseconds wait = timeout_ ? std::min(delay, *timeout_) : delay;
    const bool inTime = wait == delay;
    if (clock_ != nullptr && wait.count() > 0)
        co_await clock_->sleepFor(wait);
    co_return inTime;
}

const FakeElement* FakeAccessibility::scripted(const AccessibilityElement& element) {
    return dynamic_cast<const FakeElement*>(element.get());
}

QString FakeAccessibility::nameOf(const AccessibilityElement& element) {
    const FakeElement* node = scripted(element);
    if (node != nullptr)
        return node->name;
    return element == nullptr ? QStringLiteral("nothing") : QStringLiteral("a foreign node");
}

} // namespace vellumline
