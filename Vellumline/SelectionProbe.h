#pragma once

#include "Vellumline/Platform/Accessibility.h"
#include "Vellumline/Platform/KeyEvents.h"
#include "Vellumline/Platform/Workspace.h"

#include <QCoroTask>
#include <QSet>
#include <QString>
#include <optional>

namespace vellumline {

/// Where a selection was found, as far as the desktop and the program tell.
struct ProbeTarget {
    std::optional<Workspace::Application> application;
    AccessibilityElement element;   ///< null when the program does not tell
    std::optional<TextRange> range; ///< of the selection, when the element tells
};

/// What is focused in the front application and what is selected there.
struct ProbeAnswer {
    enum class Kind { editable, emptySelection, readOnly, secure, unknown };
    Kind kind = Kind::unknown;
    std::optional<QString> selectedText; ///< editable only, when the element reports usable text
    ProbeTarget target;                  ///< editable and unknown only

    static ProbeAnswer editable(std::optional<QString> text) { return {Kind::editable, std::move(text), {}}; }
    static ProbeAnswer of(Kind kind) { return {kind, {}, {}}; }
    /// What was found, wherever it was.
    bool operator==(const ProbeAnswer& other) const {
        return kind == other.kind && selectedText == other.selectedText;
    }
};

/// Asks the accessibility interface before anything touches the clipboard. Main thread only; never fails.
class SelectionProbe {
  public:
    SelectionProbe(Accessibility& accessibility, Workspace& workspace, SecureInput& secureInput);

    QCoro::Task<ProbeAnswer> focused();
    /// Whether that place still has the user's input and the same selection. False also when the program that
    /// told it before does not answer now: it would paste whatever is on the pasteboard when it wakes.
    QCoro::Task<bool> isStillThere(ProbeTarget target);
    QCoro::Task<bool> isSecureField(AccessibilityElement element);
    QCoro::Task<std::optional<QString>> selectedText(AccessibilityElement element);

  private:
    QCoro::Task<ProbeAnswer> classify(ProbeTarget* target);

    Accessibility& accessibility_;
    Workspace& workspace_;
    SecureInput& secureInput_;
    QSet<qint64> electronEnabled_; ///< Process identifiers already asked to build their tree; only grows.
};

} // namespace vellumline
