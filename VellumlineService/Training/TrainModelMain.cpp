// Builds a language model from texts and word lists; scripts/train-language-model.sh calls it for English.
#include "VellumlineService/Training/ModelBuilder.h"

#include <QFile>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

namespace {

bool readLines(const char* path, auto&& use) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        use(QString::fromStdString(line));
    }
    return file.eof();
}

int usage() {
    std::fputs("Usage: vellumline-train-model OUTPUT INPUT...\n"
               "  text:WEIGHT:FILE   one sentence a line; each counts WEIGHT times\n"
               "  words:FLAGS:FILE   one word a line; FLAGS as in LanguageModel::WordFlag\n"
               "  cutoffs:WORD:PAIR:TRIPLE:FOUR   least number of occurrences of what is kept\n",
               stderr);
    return 64;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 3) {
        return usage();
    }
    vellumline::ModelBuilder builder;
    vellumline::ModelBuilder::Cutoffs cutoffs;
    for (int i = 2; i < count; ++i) {
        int number = 0;
        int at = 0;
        bool read = false;
        if (std::sscanf(arguments[i], "text:%d:%n", &number, &at) == 1 && at > 0) {
            read = readLines(arguments[i] + at, [&](const QString& line) { builder.addLine(line, number); });
        } else if (std::sscanf(arguments[i], "words:%d:%n", &number, &at) == 1 && at > 0) {
            read = readLines(arguments[i] + at, [&](const QString& word) {
                builder.addListedWord(word, static_cast<quint8>(number));
            });
        } else if (std::sscanf(arguments[i], "cutoffs:%d:%d:%d:%d", &cutoffs.word, &cutoffs.pair,
                               &cutoffs.triple, &cutoffs.four) == 4) {
            read = true;
        } else {
            return usage();
        }
        if (!read) {
            std::fprintf(stderr, "vellumline-train-model: %s cannot be read\n", arguments[i]);
            return 1;
        }
    }
    QString report;
    const bool written = builder.write(QString::fromLocal8Bit(arguments[1]), cutoffs, &report);
    std::fprintf(written ? stdout : stderr, "%s\n", qPrintable(report));
    return written ? 0 : 1;
}
