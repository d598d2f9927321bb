#pragma once

#include "Vellumline/Platform/Pasteboard.h"
#include "VellumlineCore/SelectionStyle.h"

#include <QCoroTask>
#include <QList>
#include <QString>
#include <optional>

namespace vellumline {

/// The whole contents of the general pasteboard, kept while a correction borrows it. Value type; main thread
/// only.
class ClipboardSnapshot {
  public:
    using Item = PasteboardItem;
    using Completeness = PasteboardContents::Completeness;

    ClipboardSnapshot() = default;
    explicit ClipboardSnapshot(QList<Item> items, Completeness completeness = Completeness::complete);

    /// Reads every item with every type and its bytes.
    static QCoro::Task<ClipboardSnapshot> capture(Pasteboard& pasteboard);
    /// Puts the saved items back, the first one marked private. An empty snapshot leaves the pasteboard
    /// empty.
    static QCoro::Task<void> restore(ClipboardSnapshot snapshot, Pasteboard& pasteboard);

    const QList<Item>& items() const { return items_; }
    /// Whether giving this back would lose something of what the user had.
    Completeness completeness() const { return completeness_; }

  private:
    QList<Item> items_;
    Completeness completeness_ = Completeness::complete;
};

/// What this program itself puts on the pasteboard.
namespace Clipboard {

/// The marker types that clipboard histories honour, in order.
const QStringList& privateTypes();
/// Adds the marker types that the item does not list yet, with no bytes.
void markPrivate(PasteboardItem& item);
/// The one private item that holds the text: RTF in that font when it is usable, and always the plain string.
PasteboardItem privateItem(const QString& text, const std::optional<Font>& font);
/// Replaces the contents with that item. False when another program would not let go of the pasteboard.
QCoro::Task<bool> writePrivately(QString text, std::optional<Font> font, Pasteboard& pasteboard);

} // namespace Clipboard

} // namespace vellumline
