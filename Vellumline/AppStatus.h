#pragma once

#include "Vellumline/AppModel.h"

#include <QString>
#include <QVariantMap>

namespace vellumline {

/// What a running program says about itself to whoever asks: never a token, never a text of the user.
/// Everybody on the session bus can ask.
QVariantMap describe(const AppModel& model, const HotkeyMonitor& hotkeyMonitor, const QString& version);

/// The same for people, one fact a line.
QString textOf(const QVariantMap& status);

} // namespace vellumline
