#pragma once

#include "Vellumline/Platform/Accessibility.h"
#include "Vellumline/Platform/KeyEvents.h"
#include "Vellumline/Platform/Workspace.h"

#include <QCoroTask>
#include <QSet>
#include <QString>
#include <optional>

namespace vellumline {

/// What is focused in the front application and what is selected there.
struct ProbeAnswer {
    enum class Kind { editable, emptySelection, readOnly, secure, unknown };
    Kind kind = Kind::unknown;
    std::optional<QString> selectedText; ///< editable only, when the element reports usable text

    static ProbeAnswer editable(std::optional<QString> text) { return {Kind::editable, std::move(text)}; }
    static ProbeAnswer of(Kind kind) { return {kind, {}}; }
    bool operator==(const ProbeAnswer&) const = default;
};

/// Asks the accessibility interface before anything touches the clipboard. Main thread only; never fails.
class SelectionProbe {
  public:
    SelectionProbe(Accessibility& accessibility, Workspace& workspace, SecureInput& secureInput);

    QCoro::Task<ProbeAnswer> focused();
    QCoro::Task<bool> isSecureField(AccessibilityElement element);
    QCoro::Task<std::optional<QString>> selectedText(AccessibilityElement element);

  private:
    Accessibility& accessibility_;
    Workspace& workspace_;
    SecureInput& secureInput_;
    QSet<qint64> electronEnabled_; ///< Process identifiers already asked to build their tree; only grows.
};

} // namespace vellumline
