#pragma once

#include <QStringList>

namespace vellumline {

/// "vellumline-service account …": what an administrator does with accounts. The exit status.
int runAccountCommand(const QStringList& arguments);

} // namespace vellumline
