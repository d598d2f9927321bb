#include "Vellumline/UpdateDialog.h"

#include <QAccessible>
#include <QCursor>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QScreen>
#include <QVBoxLayout>
#include <algorithm>

namespace vellumline {

namespace {

constexpr int windowWidth = 480;
constexpr int inset = 24;
constexpr int markSize = 48;
constexpr int columnSpacing = 18;
constexpr int lineSpacing = 6;
constexpr int partSpacing = 16;
constexpr int buttonSpacing = 8;
constexpr int notesMargin = 8;
constexpr int tallestNotes = 168;
constexpr int progressHeight = 4;

} // namespace

UpdateDialog::UpdateDialog(QString currentVersion) : currentVersion_(std::move(currentVersion)) {
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setWindowTitle(QStringLiteral("Software Update"));

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(inset, inset, inset, inset);
    row->setSpacing(columnSpacing);
    const int side = Style::scaled(markSize);
    auto* mark = new QLabel(this);
    mark->setPixmap(Style::applicationIcon().pixmap(QSize(side, side), devicePixelRatioF()));
    row->addWidget(mark, 0, Qt::AlignTop);

    auto* column = new QVBoxLayout;
    column->setSpacing(0);
    headline_ = Style::headline({}, this);
    column->addWidget(headline_);
    column->addSpacing(lineSpacing);
    detail_ = Style::callout({}, this);
    column->addWidget(detail_);
    versions_ = Style::caption(this);
    versions_->setContentsMargins(0, lineSpacing, 0, 0);
    column->addWidget(versions_);
    progress_ = new QProgressBar(this);
    progress_->setRange(0, 0);
    progress_->setTextVisible(false);
    progress_->setFixedHeight(progressHeight);
    // Plain styles paint a bar of unknown length as a full one.
    progress_->setStyleSheet(
        QStringLiteral("QProgressBar { background: palette(mid); border: none; }"
                       "QProgressBar::chunk { background: palette(highlight); width: 64px; }"));
    progress_->setAccessibleName(QStringLiteral("Looking for updates"));
    column->addSpacing(lineSpacing);
    column->addWidget(progress_);
    notes_ = new QPlainTextEdit(this);
    notes_->setReadOnly(true);
    notes_->setTabChangesFocus(true);
    notes_->setAccessibleName(QStringLiteral("What is new"));
    notesField_ = new Style::Field(this);
    notesField_->setEditor(notes_);
    column->addSpacing(lineSpacing);
    column->addWidget(notesField_);
    column->addStretch();
    column->addSpacing(partSpacing);

    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(buttonSpacing);
    buttons->addStretch();
    dismiss_ = Style::button({}, this);
    connect(dismiss_, &QPushButton::clicked, this, &UpdateDialog::reject);
    buttons->addWidget(dismiss_);
    proceed_ = Style::prominentButton({}, this);
    connect(proceed_, &QPushButton::clicked, this, [this] {
        const QUrl page = page_;
        accept();
        if (!page.isEmpty())
            Q_EMIT pageWanted(page);
    });
    buttons->addWidget(proceed_);
    // Return presses the button that has the focus, and the default one when none has it.
    dismiss_->setAutoDefault(true);
    proceed_->setAutoDefault(true);
    column->addLayout(buttons);
    row->addLayout(column, 1);
}

void UpdateDialog::showChecking() {
    showMessage(QStringLiteral("Looking for updates…"), {});
    checking_ = true;
    progress_->show();
    proceed_->hide();
    dismiss_->setText(QStringLiteral("Cancel"));
    dismiss_->show();
    dismiss_->setFocus();
    fit();
}

void UpdateDialog::showResult(const UpdateResult& result) {
    using Kind = UpdateResult::Kind;
    const QString unreachable = QStringLiteral("Updates could not be looked for");
    switch (result.kind) {
    case Kind::newVersion:
        showNewVersion(result.item);
        break;
    case Kind::newest:
        showMessage(QStringLiteral("You have the newest version"),
                    QStringLiteral("Vellumline %1 is the newest version.").arg(currentVersion_));
        break;
    case Kind::offline:
        showMessage(unreachable, QStringLiteral("The update feed cannot be reached. Check the network "
                                                "connection and try again."));
        break;
    case Kind::timedOut:
        showMessage(unreachable, QStringLiteral("The update feed did not answer in time. Try again later."));
        break;
    case Kind::refused:
        showMessage(unreachable,
                    result.status == 0
                        ? QStringLiteral("The update feed cannot be read. Try again later.")
                        : QStringLiteral("The update feed answered with an error (HTTP %1). Try again later.")
                              .arg(result.status));
        break;
    case Kind::unverified:
        showMessage(QStringLiteral("The update feed could not be verified"),
                    QStringLiteral("It is not signed by the publisher of Vellumline, so it was not used. "
                                   "Nothing was installed."));
        break;
    case Kind::invalid:
        showMessage(QStringLiteral("The update feed is not valid"),
                    QStringLiteral("It is not a list of versions that Vellumline %1 understands. Nothing "
                                   "was installed.")
                        .arg(currentVersion_));
        break;
    }
    fit();
    // The window stays while its text changes: a screen reader is told to read it.
    QAccessibleEvent event(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&event);
}

void UpdateDialog::showMessage(const QString& headline, const QString& detail) {
    checking_ = false;
    headline_->setText(headline);
    detail_->setText(detail);
    detail_->setVisible(!detail.isEmpty());
    setAccessibleName(headline);
    setAccessibleDescription(detail);
    versions_->hide();
    progress_->hide();
    notesField_->hide();
    dismiss_->hide();
    page_.clear();
    proceed_->setText(QStringLiteral("OK"));
    proceed_->show();
    proceed_->setDefault(true);
    proceed_->setFocus();
}

void UpdateDialog::showNewVersion(const AppcastItem& item) {
    showMessage(QStringLiteral("Vellumline %1 is available").arg(item.version.text()), item.title);
    QString versions = QStringLiteral("You have version %1.").arg(currentVersion_);
    if (item.published.isValid())
        versions = QStringLiteral("Published %1. ")
                       .arg(QLocale::c().toString(item.published.date(), QStringLiteral("d MMMM yyyy"))) +
                   versions;
    versions_->setText(versions);
    versions_->show();
    setAccessibleDescription((item.title + QLatin1Char(' ') + versions).trimmed());
    notes_->setPlainText(item.notes);
    notesField_->setVisible(!item.notes.isEmpty());
    page_ = item.link.isEmpty() ? item.enclosure.url : item.link;
    proceed_->setText(item.link.isEmpty() ? QStringLiteral("Download")
                                          : QStringLiteral("Open download page"));
    dismiss_->setText(QStringLiteral("Later"));
    dismiss_->show();
}

void UpdateDialog::fitNotes() {
    const int tallest = Style::scaled(tallestNotes);
    const int textWidth =
        Style::scaled(windowWidth) - 2 * inset - Style::scaled(markSize) - columnSpacing - 2 * notesMargin;
    const QFontMetrics metrics = notes_->fontMetrics();
    const int height =
        metrics.boundingRect(QRect(0, 0, textWidth, tallest), Qt::TextWordWrap, notes_->toPlainText())
            .height();
    // One line more, as the text is wrapped a little narrower than that.
    notesField_->setFixedHeight(std::min(height + metrics.lineSpacing() + 2 * notesMargin, tallest));
}

void UpdateDialog::fit() {
    fitNotes();
    // adjustSize() would take the height that the texts need in their own, narrower width.
    const QPoint center = geometry().center();
    const int width = Style::scaled(windowWidth);
    setFixedSize(width, layout()->totalHeightForWidth(width));
    const QScreen* screen = isVisible() ? nullptr : QGuiApplication::screenAt(QCursor::pos());
    if (screen == nullptr)
        screen = QGuiApplication::primaryScreen();
    if (!isVisible() && screen != nullptr)
        move(screen->availableGeometry().center() - rect().center());
    else
        move(center - rect().center());
}

} // namespace vellumline
