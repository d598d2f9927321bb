#pragma once

#include "Vellumline/Style.h"

#include <QAbstractButton>
#include <QLabel>
#include <QPoint>
#include <QWidget>
#include <algorithm>

namespace vellumline::test {

/// The text of a widget as a person reads it, before anything is elided; empty when it has none.
inline QString textOf(const QWidget* widget) {
    if (const auto* label = qobject_cast<const Style::Label*>(widget))
        return label->fullText();
    if (const auto* label = qobject_cast<const QLabel*>(widget))
        return label->text();
    if (const auto* button = qobject_cast<const QAbstractButton*>(widget))
        return button->text().isEmpty() ? button->toolTip() : button->text();
    return {};
}

/// Every widget with a text that is on screen, row by row and each row from left to right.
inline QList<QWidget*> visibleTexts(const QWidget* window) {
    QList<QWidget*> found;
    for (auto* each : window->findChildren<QWidget*>()) {
        if (each->isVisible() && !textOf(each).isEmpty())
            found.append(each);
    }
    const auto middle = [window](const QWidget* each) {
        return each->mapTo(window, QPoint(0, each->height() / 2));
    };
    std::ranges::stable_sort(found, [&](const QWidget* a, const QWidget* b) {
        constexpr int sameRow = 6; // pixels that the middles of one row may differ
        const QPoint left = middle(a);
        const QPoint right = middle(b);
        if (std::abs(left.y() - right.y()) > sameRow)
            return left.y() < right.y();
        return left.x() < right.x();
    });
    return found;
}

inline QStringList visibleTextStrings(const QWidget* window) {
    QStringList result;
    for (const QWidget* each : visibleTexts(window))
        result.append(textOf(each));
    return result;
}

/// The widget that shows exactly that text; null when none does.
inline QWidget* showing(const QWidget* window, const QString& text) {
    const auto all = visibleTexts(window);
    const auto found = std::ranges::find_if(all, [&](const QWidget* each) { return textOf(each) == text; });
    return found != all.end() ? *found : nullptr;
}

inline QAbstractButton* button(const QWidget* window, const QString& text) {
    return qobject_cast<QAbstractButton*>(showing(window, text));
}

} // namespace vellumline::test
