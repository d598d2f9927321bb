#pragma once

#include <QString>

namespace vellumline {

/// Where the model of a language ("en") lies: in the folder that the variable VELLUMLINE_MODELS names, else
/// beside the installed program (../share/vellumline/models), else in the source tree that the program was
/// built from. Empty when it is nowhere.
QString modelFile(const QString& language);

} // namespace vellumline
