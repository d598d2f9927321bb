#pragma once

#include <QVBoxLayout>

class QWidget;

namespace vellumline {

/// What the pages of the menu panel share: their width, their padding, rows from top to bottom.
namespace PageLayout {

inline constexpr int width = 300; ///< at the usual text size, in device-independent pixels
inline constexpr int padding = 16;

QVBoxLayout* install(QWidget* page, int rowSpacing);

} // namespace PageLayout

} // namespace vellumline
