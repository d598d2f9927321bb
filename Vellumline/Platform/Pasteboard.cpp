#include "Vellumline/Platform/Pasteboard.h"

#include <algorithm>

namespace vellumline {

bool PasteboardItem::hasType(const QString& type) const {
    return std::ranges::any_of(representations, [&](const auto& each) { return each.type == type; });
}

void PasteboardItem::set(const QString& type, const QByteArray& data) {
    for (auto& each : representations) {
        if (each.type == type) {
            each = {type, data, {}, 8};
            return;
        }
    }
    representations.append({type, data, {}, 8});
}

std::optional<QByteArray> PasteboardItem::data(const QString& type) const {
    for (const auto& each : representations) {
        if (each.type == type)
            return each.data;
    }
    return std::nullopt;
}

} // namespace vellumline
