#pragma once

#include <QByteArray>
#include <vector>

namespace vellumline {

class Line;

/// One word of a text as a language model sees it.
struct ModelToken {
    enum class Kind { word, capitalWord, number, kept, sentenceStart };
    Kind kind = Kind::word;
    QByteArray text; ///< Lower case, UTF-8; empty for what is no word.
    int word = -1;   ///< Which word of the line it is, or is a part of.
};

/// A text as a model sees it, for the builder and for the reader alike: small letters, no quotes, "dog's" as
/// "dog" and "'s", punctuation as words.
std::vector<ModelToken> modelTokens(const Line& line);
/// A word of a text, or two that replaced it, in pieces as a model sees them.
std::vector<QByteArray> modelPieces(const QString& lower);

} // namespace vellumline
