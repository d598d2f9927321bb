#include "VellumlineService/Correction/LanguageToolEngine.h"

#include "VellumlineService/Correction/AnswerCheck.h"
#include "VellumlineService/Correction/EngineReply.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

namespace vellumline {

namespace {

// Below that the server guesses; short texts get any language.
constexpr double sureOfLanguage = 0.9;
constexpr qsizetype longestReplacement = 200;

/// A number that is a position in the text; nothing when it is anything else.
std::optional<qsizetype> position(const QJsonValue& value, qsizetype last) {
    const double number = value.toDouble(-1);
    if (!(number >= 0) || number > static_cast<double>(last)) {
        return {};
    }
    const auto whole = static_cast<qsizetype>(number);
    return static_cast<double>(whole) == number ? std::optional(whole) : std::nullopt;
}

bool splitsCharacter(const QString& text, qsizetype at) {
    return at > 0 && at < text.size() && text.at(at).isLowSurrogate() && text.at(at - 1).isHighSurrogate();
}

bool isPlain(const QString& replacement) {
    return std::none_of(replacement.begin(), replacement.end(), [](QChar c) {
        return c.category() == QChar::Other_Control || c == QChar(0x2028) || c == QChar(0x2029);
    });
}

bool touches(const TextEdit& edit, const QString& text, const QList<ProtectedSpan>& spans) {
    const qsizetype end = edit.offset + edit.length;
    for (const ProtectedSpan& span : spans) {
        const qsizetype spanEnd = span.start + span.length;
        const bool apart = end <= span.start || edit.offset >= spanEnd;
        const bool around = edit.offset <= span.start && end >= spanEnd;
        if (!apart && !around) {
            return true;
        }
    }
    return protectedTexts(edit.replacement) != protectedTexts(text.mid(edit.offset, edit.length));
}

} // namespace

std::optional<LanguageToolReply> parseLanguageToolReply(const QByteArray& body, const QString& text) {
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonObject object = document.object();
    if (!document.isObject() || !object.value(QStringLiteral("matches")).isArray()) {
        return {};
    }
    LanguageToolReply reply;
    const QJsonObject language = object.value(QStringLiteral("language")).toObject();
    const QJsonObject detected = language.value(QStringLiteral("detectedLanguage")).toObject();
    const QString used = language.value(QStringLiteral("code")).toString().section(u'-', 0, 0);
    const QString found = detected.value(QStringLiteral("code")).toString().section(u'-', 0, 0);
    reply.otherLanguage = !used.isEmpty() && !found.isEmpty() && used != found &&
                          detected.value(QStringLiteral("confidence")).toDouble() >= sureOfLanguage;

    const QJsonArray matches = object.value(QStringLiteral("matches")).toArray();
    for (const auto& value : matches) {
        const QJsonObject match = value.toObject();
        const auto offset = position(match.value(QStringLiteral("offset")), text.size());
        const auto length =
            offset ? position(match.value(QStringLiteral("length")), text.size() - *offset) : std::nullopt;
        const QJsonValue replacements = match.value(QStringLiteral("replacements"));
        // Positions that do not fit are those of another text; then none of them can be trusted.
        if (!length || !replacements.isArray() || splitsCharacter(text, *offset) ||
            splitsCharacter(text, *offset + *length)) {
            return {};
        }
        const QJsonValue first = replacements.toArray().first().toObject().value(QStringLiteral("value"));
        if (*length > 0 && first.isString() && first.toString().size() <= longestReplacement) {
            reply.edits.append({*offset, *length, first.toString()});
        }
    }
    std::stable_sort(reply.edits.begin(), reply.edits.end(),
                     [](const TextEdit& left, const TextEdit& right) { return left.offset < right.offset; });
    QList<TextEdit> apart;
    for (const TextEdit& edit : std::as_const(reply.edits)) {
        if (apart.isEmpty() || edit.offset >= apart.last().offset + apart.last().length) {
            apart.append(edit);
        }
    }
    reply.edits = apart;
    return reply;
}

QString applyEdits(const QString& text, const QList<TextEdit>& edits) {
    const QList<ProtectedSpan> spans = protectedSpans(text);
    QString corrected = text;
    // From the end, so that the positions before stay right.
    for (auto edit = edits.rbegin(); edit != edits.rend(); ++edit) {
        if (isPlain(edit->replacement) && isPlain(text.mid(edit->offset, edit->length)) &&
            !touches(*edit, text, spans)) {
            corrected.replace(edit->offset, edit->length, edit->replacement);
        }
    }
    return corrected;
}

QByteArray languageToolForm(const QString& text, const QByteArray& language) {
    return "language=" + language + (language == "auto" ? "&preferredVariants=en-US" : "") +
           "&text=" + text.toUtf8().toPercentEncoding();
}

LanguageToolEngine::LanguageToolEngine(HttpClientSettings server, QByteArray language)
    : client_(std::move(server)), language_(std::move(language)) {}

CorrectionResult LanguageToolEngine::correct(QString text) {
    if (text.size() > comparableLength) {
        return {CorrectionResult::Status::refused, {}, verdictText(AnswerVerdict::tooLong)};
    }
    const HttpReply reply =
        client_.post("application/x-www-form-urlencoded", languageToolForm(text, language_));
    if (auto problem = engineProblem(reply)) {
        return *problem;
    }
    const auto found = parseLanguageToolReply(reply.body, text);
    if (!found) {
        return {
            CorrectionResult::Status::failed, {}, QStringLiteral("the answer is not that of LanguageTool")};
    }
    const QString corrected = found->otherLanguage ? text : applyEdits(text, found->edits);
    if (corrected == text) {
        return {CorrectionResult::Status::corrected, text};
    }
    const CheckedAnswer checked = checkAnswer(text, corrected);
    if (checked.verdict != AnswerVerdict::accepted) {
        return {CorrectionResult::Status::refused, {}, verdictText(checked.verdict)};
    }
    return {CorrectionResult::Status::corrected, checked.text};
}

} // namespace vellumline
