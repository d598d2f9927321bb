// The settings file: any bytes must read as settings or as none, and never keep a setting from being written.
#include "Vellumline/Platform/Linux/SettingsDefaults.h"

#include <QFile>
#include <QTemporaryDir>
#include <cstdlib>

using namespace vellumline;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const QTemporaryDir folder;
    // Qt remembers what it read from a path; every input gets a path of its own.
    static quint64 count = 0;
    const QString path = folder.filePath(QStringLiteral("%1.conf").arg(++count));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        std::abort();
    file.write(reinterpret_cast<const char*>(bytes), static_cast<qint64>(size));
    file.close();
    {
        SettingsDefaults defaults(path);
        for (const char* name :
             {"vellumline.hotkey.keyCode", "vellumline.hotkey.modifiers", "vellumline.hotkey.keyLabel",
              "vellumline.pasteDelayMs", "vellumline.onboardingDone"}) {
            const QString key = QString::fromLatin1(name);
            const bool present = defaults.contains(key);
            const qint64 integer = defaults.integer(key);
            const QString text = defaults.string(key);
            const bool boolean = defaults.boolean(key);
            if (!present && (integer != 0 || !text.isNull() || boolean))
                std::abort();
        }
        // Writing waits for the disk: most inputs are only read.
        const QString label = QStringLiteral("vellumline.hotkey.keyLabel");
        if (size % 32 == 0)
            defaults.set(label, QStringLiteral(","));
        if (size % 32 == 0 && defaults.string(label) != QLatin1String(","))
            std::abort();
    }
    QFile::remove(path);
    return 0;
}
