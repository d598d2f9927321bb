// Any body as the reply of a LanguageTool server to a text: positions outside the text, inside a character or
// over each other never get through.
#include "CorrectionInvariants.h"
#include "VellumlineService/Correction/LanguageToolEngine.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace vellumline;
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString text =
        QStringLiteral("\U0001f389 i has 2 aple\tat http://example.org/a.\r\nteh `code` end, @anna");
    const auto reply = parseLanguageToolReply(body, text);
    if (!reply) {
        return 0;
    }
    qsizetype end = 0;
    for (const TextEdit& edit : reply->edits) {
        const bool inside = edit.offset >= end && edit.length > 0 && edit.offset + edit.length <= text.size();
        if (!inside || (edit.offset > 0 && text.at(edit.offset).isLowSurrogate())) {
            std::abort();
        }
        end = edit.offset + edit.length;
    }
    const QString corrected = applyEdits(text, reply->edits);
    if (fuzz::lineBreaks(corrected) != fuzz::lineBreaks(text) ||
        corrected.count(u'\t') != text.count(u'\t')) {
        std::abort();
    }
    fuzz::requireCorrection(text, checkAnswer(text, corrected));
    return 0;
}
