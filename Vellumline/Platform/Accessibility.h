#pragma once

#include <QCoroTask>
#include <QString>
#include <chrono>
#include <memory>
#include <variant>

namespace vellumline {

/// The attribute names that the program asks for; an adapter answers them from its platform's own tree.
namespace AccessibilityAttribute {
inline const QString manualAccessibility = QStringLiteral("AXManualAccessibility");
inline const QString focusedElement = QStringLiteral("AXFocusedUIElement");
inline const QString subrole = QStringLiteral("AXSubrole");
inline const QString role = QStringLiteral("AXRole");
inline const QString secureTextField = QStringLiteral("AXSecureTextField"); ///< a value of role or subrole
inline const QString selectedTextRange = QStringLiteral("AXSelectedTextRange");
inline const QString selectedText = QStringLiteral("AXSelectedText");
inline const QString value = QStringLiteral("AXValue");
} // namespace AccessibilityAttribute

/// A node of another program's accessibility tree. Opaque; copying shares the node. An adapter derives its
/// own.
class AccessibilityNode {
  public:
    virtual ~AccessibilityNode() = default;
    /// Whether both stand for one element of the other program, as two answers about it may.
    virtual bool isSameAs(const AccessibilityNode& other) const { return this == &other; }
};
using AccessibilityElement = std::shared_ptr<const AccessibilityNode>;

/// A range of a text in the owner's own units; only a length of zero has meaning across programs.
struct TextRange {
    qint64 location = 0;
    qint64 length = 0;
    bool operator==(const TextRange&) const = default;
};

enum class AccessibilityError {
    failed,        ///< the call was refused or the element is gone
    noValue,       ///< the element has no such attribute
    cannotComplete ///< the application did not answer within the messaging time-out
};

using AccessibilityValue = std::variant<bool, QString, TextRange, AccessibilityElement>;

/// Either a value or why there is none.
template<class T> struct AccessibilityResult {
    std::variant<AccessibilityError, T> content;

    bool isValue() const { return content.index() == 1; }
    const T& value() const { return std::get<1>(content); }
    AccessibilityError error() const { return std::get<0>(content); }
};

/// Other programs' user interfaces, as assistive technology sees them. Main thread only; calls suspend, never
/// block.
class Accessibility {
  public:
    virtual ~Accessibility() = default;

    /// Whether this program may use the accessibility interface now. Known without asking another process.
    virtual bool isProcessTrusted() const = 0;
    /// Asks the system for access (it may show its own request); what comes of it is seen in
    /// isProcessTrusted().
    virtual void requestTrust() = 0;

    /// The root element of a program; never fails, a program without a tree answers its attributes with an
    /// error.
    virtual AccessibilityElement applicationElement(qint64 processIdentifier) = 0;
    /// The longest time that one later call on the element, or on one reached through it, may take.
    virtual void setMessagingTimeout(const AccessibilityElement& element,
                                     std::chrono::milliseconds timeout) = 0;

    virtual QCoro::Task<AccessibilityResult<AccessibilityValue>> copyAttribute(AccessibilityElement element,
                                                                               QString attribute) = 0;
    /// True when the element took the value.
    virtual QCoro::Task<bool> setAttribute(AccessibilityElement element, QString attribute, bool value) = 0;
    virtual QCoro::Task<AccessibilityResult<bool>> isAttributeSettable(AccessibilityElement element,
                                                                       QString attribute) = 0;
};

} // namespace vellumline
