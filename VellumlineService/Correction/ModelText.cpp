#include "VellumlineService/Correction/ModelText.h"

#include "VellumlineService/Correction/Line.h"

#include <QSet>

namespace vellumline {

namespace {

// Contractions whose "'s" is a verb more often than a possessive.
const QSet<QString>& verbContractions() {
    static const QSet<QString> set = {
        QStringLiteral("it's"),    QStringLiteral("he's"),    QStringLiteral("she's"),
        QStringLiteral("that's"),  QStringLiteral("what's"),  QStringLiteral("who's"),
        QStringLiteral("where's"), QStringLiteral("there's"), QStringLiteral("here's"),
        QStringLiteral("let's"),   QStringLiteral("how's"),   QStringLiteral("when's"),
        QStringLiteral("one's"),   QStringLiteral("why's")};
    return set;
}

QByteArray punctuation(const QString& text) {
    switch (text.front().unicode()) {
    case 0x2012:
    case 0x2013:
    case 0x2014:
        return QByteArrayLiteral("--");
    case 0x2010:
    case 0x2011:
        return QByteArrayLiteral("-");
    case 0x2026:
        return QByteArrayLiteral(".");
    default:
        return QStringView(u",;:.?!()-").contains(text.front()) ? text.toUtf8() : QByteArray();
    }
}

} // namespace

std::vector<QByteArray> modelPieces(const QString& lower) {
    if (lower.size() > 3 && lower.endsWith(QStringLiteral("'s")) && !verbContractions().contains(lower)) {
        return {lower.chopped(2).toUtf8(), QByteArrayLiteral("'s")};
    }
    if (lower.contains(u' ')) {
        std::vector<QByteArray> pieces;
        const QStringList words = lower.split(u' ');
        for (const QString& word : words) {
            for (const QByteArray& piece : modelPieces(word)) {
                pieces.push_back(piece);
            }
        }
        return pieces;
    }
    return {lower.toUtf8()};
}

std::vector<ModelToken> modelTokens(const Line& line) {
    std::vector<ModelToken> made;
    made.reserve(line.tokens().size());
    int word = -1;
    for (const Token& token : line.tokens()) {
        switch (token.kind) {
        case Token::Kind::word: {
            ++word;
            if (token.startsSentence) {
                made.push_back({ModelToken::Kind::sentenceStart, {}, -1});
            }
            const auto kind = !token.startsSentence && token.text.front().isUpper()
                                  ? ModelToken::Kind::capitalWord
                                  : ModelToken::Kind::word;
            for (const QByteArray& piece : modelPieces(token.lower)) {
                made.push_back({kind, piece, word});
            }
            break;
        }
        case Token::Kind::punctuation:
            if (const QByteArray text = punctuation(token.text); !text.isEmpty()) {
                made.push_back({ModelToken::Kind::word, text, -1});
            }
            break;
        case Token::Kind::kept:
            made.push_back(
                {token.text.front().isDigit() ? ModelToken::Kind::number : ModelToken::Kind::kept, {}, -1});
            break;
        case Token::Kind::space:
            break;
        }
    }
    return made;
}

} // namespace vellumline
