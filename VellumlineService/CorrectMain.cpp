// One text a line on standard input, the corrected line on standard output; each line is flushed.
#include "VellumlineService/Correction/RulesEngine.h"

#include <cstdio>
#include <iostream>
#include <string>

int main() {
    vellumline::RulesEngine engine;
    std::string line;
    while (std::getline(std::cin, line)) {
        const auto result = engine.correct(QString::fromStdString(line));
        if (result.status != vellumline::CorrectionResult::Status::corrected) {
            std::fputs(
                "vellumline-correct: the engine cannot work; is a Hunspell dictionary for en_US installed?\n",
                stderr);
            return 1;
        }
        std::cout << result.text.toStdString() << '\n' << std::flush;
    }
    return 0;
}
