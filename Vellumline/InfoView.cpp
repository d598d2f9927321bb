#include "Vellumline/InfoView.h"

#include "Vellumline/PageLayout.h"
#include "Vellumline/Style.h"
#include "Vellumline/VellumlineMark.h"

#include <QHBoxLayout>
#include <algorithm>

namespace vellumline {

namespace {

constexpr int rowSpacing = 12;
constexpr int factSpacing = 8;
constexpr int nameWidth = 64;
constexpr int markSide = 16;
const QString longestName = QStringLiteral("Developer");

} // namespace

InfoView::Facts InfoView::facts(const QUrl& website) {
    return {QStringLiteral(VELLUMLINE_VERSION), QStringLiteral(VELLUMLINE_DEVELOPER), website,
            QStringLiteral(VELLUMLINE_SUPPORT_EMAIL)};
}

InfoView::InfoView(const Facts& facts, Actions actions, QWidget* parent)
    : QWidget(parent), actions_(std::move(actions)) {
    QVBoxLayout* rows = PageLayout::install(this, rowSpacing);

    auto* header = new QHBoxLayout;
    auto* mark = new VellumlineMark(this);
    mark->setFixedSize(Style::scaled(markSide), Style::scaled(markSide));
    header->addWidget(mark, 0, Qt::AlignVCenter);
    auto* names = new QVBoxLayout;
    names->setSpacing(0);
    names->addWidget(Style::headline(QStringLiteral("Vellumline"), this));
    if (!facts.version.isEmpty()) {
        Style::Label* version = Style::caption(this);
        version->setText(QStringLiteral("Version ") + facts.version);
        names->addWidget(version);
    }
    header->addLayout(names, 1);
    rows->addLayout(header);
    rows->addWidget(Style::divider(this));

    auto* list = new QVBoxLayout;
    list->setSpacing(factSpacing);
    Style::Label* developer = Style::caption(this);
    developer->setText(facts.developer);
    developer->setTone(Style::Tone::primary);
    list->addLayout(factRow(longestName, developer));
    list->addLayout(factRow(QStringLiteral("Website"), link(facts.website.host(), facts.website)));
    list->addLayout(
        factRow(QStringLiteral("Email"), link(facts.email, QUrl(QStringLiteral("mailto:") + facts.email))));
    rows->addLayout(list);
    rows->addWidget(Style::divider(this));

    Style::Button* done = Style::prominentButton(QStringLiteral("Done"), this);
    connect(done, &QPushButton::clicked, this, [this] {
        if (actions_.onDone)
            actions_.onDone();
    });
    rows->addWidget(done, 0, Qt::AlignLeft);
}

QLayout* InfoView::factRow(const QString& name, QWidget* value) {
    auto* row = new QHBoxLayout;
    row->setSpacing(factSpacing);
    Style::Label* label = Style::caption(this);
    label->setText(name);
    label->setFixedWidth(
        std::max(Style::scaled(nameWidth), label->fontMetrics().horizontalAdvance(longestName) + 1));
    row->addWidget(label);
    row->addWidget(value, 1);
    return row;
}

QWidget* InfoView::link(const QString& text, const QUrl& target) {
    auto* place = new QWidget(this);
    auto* row = new QHBoxLayout(place);
    row->setContentsMargins(0, 0, 0, 0);
    Style::Button* made = Style::linkButton(text, place);
    row->addWidget(made);
    row->addStretch();
    connect(made, &QPushButton::clicked, this, [this, target] {
        if (actions_.openLink)
            actions_.openLink(target);
    });
    return place;
}

} // namespace vellumline
