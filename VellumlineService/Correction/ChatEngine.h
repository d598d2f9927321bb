#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"
#include "VellumlineService/Correction/HttpClient.h"

#include <QByteArray>
#include <optional>

namespace vellumline {

/// The body for POST /v1/chat/completions: instructions that never change, and the text as JSON between marks
/// that the text cannot contain.
QByteArray chatRequest(const QString& text, const QString& model);

/// What a model wrote.
struct ChatReply {
    enum class Kind {
        text,
        cut,     ///< It stopped before its end.
        refusal, ///< It did not want to, or called a tool.
    };
    Kind kind = Kind::text;
    QString text;
};

/// Nothing when the body is not such a reply.
std::optional<ChatReply> parseChatReply(const QByteArray& body);

/// Corrects with a language model behind an OpenAI-compatible address. The model sees a text that may contain
/// instructions; what it makes of them is checked against the text before anybody sees it.
class ChatEngine : public CorrectionEngine {
  public:
    /// An empty model leaves the choice to the server; an empty key sends none.
    ChatEngine(HttpClientSettings server, QString model, QByteArray key);

    CorrectionResult correct(QString text) override;

  private:
    HttpClient client_;
    const QString model_;
    const QByteArray key_;
};

} // namespace vellumline
