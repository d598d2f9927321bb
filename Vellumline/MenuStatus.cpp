#include "Vellumline/MenuStatus.h"

namespace vellumline {

std::optional<QString> MenuStatus::statusText(const QString& hotkey) const {
    switch (kind) {
    case Kind::problem:
        return why.message(hotkey);
    case Kind::message:
        return text;
    case Kind::rewrote:
        return QStringLiteral("Rewrote the selection.");
    case Kind::ready:
        break;
    }
    return std::nullopt;
}

} // namespace vellumline
