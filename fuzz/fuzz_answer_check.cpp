// Any answer to any text, and answers that are the text with some changes: what is accepted keeps what it
// must, and the text itself is always a fine answer.
#include "CorrectionInvariants.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace vellumline;
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const qsizetype divider = input.indexOf('\xff');
    const QByteArray rest = divider < 0 ? QByteArray() : input.mid(divider + 1);
    const QString text = QString::fromUtf8(input.left(divider < 0 ? input.size() : divider)).left(2'000);

    const CheckedAnswer same = checkAnswer(text, text);
    if (text.trimmed().isEmpty() ? same.verdict == AnswerVerdict::accepted
                                 : same.verdict != AnswerVerdict::accepted || same.text != text) {
        std::abort();
    }
    const QString answer = QString::fromUtf8(rest);
    fuzz::requireCorrection(text, checkAnswer(text, answer));

    // Two bytes are one change: where, and which sign.
    QString changed = text;
    for (qsizetype i = 0; i + 1 < rest.size() && !changed.isEmpty(); i += 2) {
        const auto sign = static_cast<uint8_t>(rest.at(i + 1));
        const qsizetype at = static_cast<uint8_t>(rest.at(i)) * changed.size() / 256;
        if (sign < 64) {
            changed.remove(at, sign % 8 + 1);
        } else if (sign < 128) {
            changed.insert(at, QLatin1Char(static_cast<char>(sign)));
        } else {
            changed[at] = QLatin1Char(static_cast<char>(sign - 128));
        }
    }
    fuzz::requireCorrection(text, checkAnswer(text, changed));
    return 0;
}
