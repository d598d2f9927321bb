#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"
#include "VellumlineService/Correction/HttpClient.h"

#include <QByteArray>
#include <QList>
#include <optional>

namespace vellumline {

struct TextEdit {
    qsizetype offset = 0; ///< UTF-16 units.
    qsizetype length = 0;
    QString replacement;
};

/// What a LanguageTool server found in a text.
struct LanguageToolReply {
    /// The first suggestion of each match that has one; in the text's order, none overlaps another.
    QList<TextEdit> edits;
    /// The server is sure that this is another language than the one that was asked for.
    bool otherLanguage = false;
};

/// Nothing when the body is not such a reply to this text.
std::optional<LanguageToolReply> parseLanguageToolReply(const QByteArray& body, const QString& text);
/// Leaves out what would change a protected piece, or add lines or control characters.
QString applyEdits(const QString& text, const QList<TextEdit>& edits);
/// The form for POST /v2/check.
QByteArray languageToolForm(const QString& text, const QByteArray& language);

/// Corrects with a LanguageTool server.
class LanguageToolEngine : public CorrectionEngine {
  public:
    /// `language` is "auto" or a code such as "en-US".
    LanguageToolEngine(HttpClientSettings server, QByteArray language);

    CorrectionResult correct(QString text) override;

  private:
    HttpClient client_;
    const QByteArray language_;
};

} // namespace vellumline
