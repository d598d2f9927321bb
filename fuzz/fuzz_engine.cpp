// Arbitrary text through the engine: no crash, and its line structure comes back.
#include "VellumlineService/Correction/RulesEngine.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static vellumline::RulesEngine engine;
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto breaks = [](const QString& of) {
        QString found;
        for (const QChar c : of) {
            if (c == u'\n' || c == u'\r' || c == QChar(0x2028) || c == QChar(0x2029)) {
                found += c;
            }
        }
        return found;
    };
    const auto result = engine.correct(text);
    if (result.status == vellumline::CorrectionResult::Status::corrected &&
        breaks(result.text) != breaks(text)) {
        std::abort();
    }
    return 0;
}
