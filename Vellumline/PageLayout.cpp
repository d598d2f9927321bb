#include "Vellumline/PageLayout.h"

#include "Vellumline/Style.h"

#include <QWidget>

namespace vellumline::PageLayout {

QVBoxLayout* install(QWidget* page, int rowSpacing) {
    page->setFixedWidth(Style::scaled(width));
    auto* rows = new QVBoxLayout(page);
    rows->setContentsMargins(padding, padding, padding, padding);
    rows->setSpacing(rowSpacing);
    return rows;
}

} // namespace vellumline::PageLayout
