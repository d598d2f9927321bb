#include "Vellumline/SelectionProbe.h"

namespace vellumline {

namespace {

using namespace std::chrono_literals;
namespace Attribute = AccessibilityAttribute;

// An application that does not answer must not hold up the correction for long.
constexpr std::chrono::milliseconds messagingTimeout = 250ms;
// When there is a correction to paste, an application that is only slow is worth more patience: not to know
// whether the selection is still there means not to paste. An editor that lays out a few hundred combining
// marks, on a machine with too much to do, was seen to take longer than the time above.
constexpr std::chrono::milliseconds checkTimeout = 1000ms;
constexpr char16_t objectReplacement = 0xFFFC; // stands for an embedded attachment

template<class T> const T* valueOf(const AccessibilityResult<AccessibilityValue>& result) {
    return result.isValue() ? std::get_if<T>(&result.value()) : nullptr;
}

} // namespace

SelectionProbe::SelectionProbe(Accessibility& accessibility, Workspace& workspace, SecureInput& secureInput)
    : accessibility_(accessibility), workspace_(workspace), secureInput_(secureInput) {}

QCoro::Task<ProbeAnswer> SelectionProbe::focused() {
    ProbeTarget target;
    ProbeAnswer answer = co_await classify(&target);
    answer.target = std::move(target);
    co_return answer;
}

QCoro::Task<ProbeAnswer> SelectionProbe::classify(ProbeTarget* target) {
    using Kind = ProbeAnswer::Kind;

    if (secureInput_.isSecureEventInputEnabled())
        co_return ProbeAnswer::of(Kind::secure);
    const std::optional<Workspace::Application> front = workspace_.frontmostApplication();
    target->application = front;
    if (!front)
        co_return ProbeAnswer::of(Kind::unknown);

    const AccessibilityElement application = accessibility_.applicationElement(front->processIdentifier);
    accessibility_.setMessagingTimeout(application, messagingTimeout);
    if (!electronEnabled_.contains(front->processIdentifier)) {
        electronEnabled_.insert(front->processIdentifier);
        co_await accessibility_.setAttribute(application, Attribute::manualAccessibility, true);
    }

    const auto focusedResult = co_await accessibility_.copyAttribute(application, Attribute::focusedElement);
    const auto* element = valueOf<AccessibilityElement>(focusedResult);
    if (element == nullptr || *element == nullptr)
        co_return ProbeAnswer::of(Kind::unknown);
    const AccessibilityElement focused = *element;
    target->element = focused;

    const bool secure = co_await isSecureField(focused);
    if (secure)
        co_return ProbeAnswer::of(Kind::secure);

    const auto rangeResult = co_await accessibility_.copyAttribute(focused, Attribute::selectedTextRange);
    const auto* range = valueOf<TextRange>(rangeResult);
    if (range == nullptr)
        co_return ProbeAnswer::of(Kind::unknown);
    target->range = *range;
    if (range->length == 0)
        co_return ProbeAnswer::of(Kind::emptySelection);

    const auto textSettable = co_await accessibility_.isAttributeSettable(focused, Attribute::selectedText);
    if (textSettable.isValue() && textSettable.value()) {
        std::optional<QString> text = co_await selectedText(focused);
        co_return ProbeAnswer::editable(std::move(text));
    }
    const auto valueSettable = co_await accessibility_.isAttributeSettable(focused, Attribute::value);
    if (valueSettable.isValue() && valueSettable.value()) {
        std::optional<QString> text = co_await selectedText(focused);
        co_return ProbeAnswer::editable(std::move(text));
    }
    const bool neitherExamined = !textSettable.isValue() && !valueSettable.isValue();
    co_return ProbeAnswer::of(neitherExamined ? Kind::unknown : Kind::readOnly);
}

QCoro::Task<bool> SelectionProbe::isStillThere(ProbeTarget target) {
    const std::optional<Workspace::Application> front = workspace_.frontmostApplication();
    if (front != target.application || (front && front->window != target.application->window))
        co_return false;
    if (!front || !target.element)
        co_return true; // it told nothing before
    const AccessibilityElement application = accessibility_.applicationElement(front->processIdentifier);
    accessibility_.setMessagingTimeout(application, checkTimeout);
    const auto focusedResult = co_await accessibility_.copyAttribute(application, Attribute::focusedElement);
    const auto* element = valueOf<AccessibilityElement>(focusedResult);
    if (element == nullptr || *element == nullptr || !(*element)->isSameAs(*target.element))
        co_return false;
    if (!target.range)
        co_return true;
    const auto rangeResult = co_await accessibility_.copyAttribute(*element, Attribute::selectedTextRange);
    const auto* range = valueOf<TextRange>(rangeResult);
    co_return range != nullptr&&* range == *target.range;
}

QCoro::Task<bool> SelectionProbe::isSecureField(AccessibilityElement element) {
    const auto subrole = co_await accessibility_.copyAttribute(element, Attribute::subrole);
    if (const auto* name = valueOf<QString>(subrole); name != nullptr && *name == Attribute::secureTextField)
        co_return true;
    const auto role = co_await accessibility_.copyAttribute(element, Attribute::role);
    const auto* name = valueOf<QString>(role);
    const bool secure = name != nullptr && *name == Attribute::secureTextField;
    co_return secure;
}

QCoro::Task<std::optional<QString>> SelectionProbe::selectedText(AccessibilityElement element) {
    const auto result = co_await accessibility_.copyAttribute(element, Attribute::selectedText);
    const auto* text = valueOf<QString>(result);
    if (text == nullptr || text->isEmpty() || text->contains(QChar(objectReplacement)))
        co_return std::nullopt;
    co_return *text;
}

} // namespace vellumline
