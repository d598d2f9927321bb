#include "VellumlineService/Correction/ModelFiles.h"

#include <QFileInfo>

namespace vellumline {

QString modelFile(const QString& language) {
    const QString name = language + QStringLiteral(".model");
    const QString chosen = qEnvironmentVariable("VELLUMLINE_MODELS");
    if (!chosen.isEmpty()) {
        return chosen + u'/' + name;
    }
    // Not QCoreApplication: programs without one correct, too.
    const QString program = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    for (const QString& folder :
         {QFileInfo(program).path() + QStringLiteral("/../share/vellumline/models"),
          QStringLiteral("/usr/share/vellumline/models"), QStringLiteral(VELLUMLINE_MODEL_FOLDER)}) {
        QString file = folder + u'/' + name;
        if (QFileInfo::exists(file)) {
            return file;
        }
    }
    return {};
}

} // namespace vellumline
