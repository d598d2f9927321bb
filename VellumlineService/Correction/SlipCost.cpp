#include "VellumlineService/Correction/SlipCost.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <vector>

namespace vellumline {

namespace {

constexpr size_t longestWord = 30;

constexpr double doubling = 0.5;      // A letter doubled, or one of a pair left out.
constexpr double swapping = 0.65;     // Two letters in the wrong order.
constexpr double apostrophe = 0.3;    // Left out or too much.
constexpr double vowelForVowel = 0.7; // "seperate".
constexpr double soundAlike = 0.7;    // One consonant for another: "c" for "s".
constexpr double nextKey = 0.8;
constexpr double otherLetter = 1.1;
constexpr double silentMissing = 0.8; // A vowel or an h.
constexpr double letterMissing = 0.85;
constexpr double nextKeyToo = 0.85; // The neighbour of the letter before or after was hit, too.
constexpr double letterToo = 1.0;
constexpr double wrongStart = 0.6;   // Writers rarely mistake the first letter.
constexpr double swappedStart = 0.2; // But their fingers may be in the wrong order there too: "hte".

bool isLetter(char c) {
    return c >= 'a' && c <= 'z';
}

constexpr bool isVowel(char c) {
    return c == 'a' || c == 'e' || c == 'i' || c == 'o' || c == 'u' || c == 'y';
}

/// Whether the keys touch, by pair of letters.
const std::array<std::array<bool, 26>, 26>& neighbours() {
    static const auto made = [] {
        std::array<std::array<bool, 26>, 26> table{};
        // A row stands half a key to the right of the one above it.
        static constexpr std::array<std::pair<const char*, double>, 3> rows = {
            {{"qwertyuiop", 0.0}, {"asdfghjkl", 0.25}, {"zxcvbnm", 0.75}}};
        struct Key {
            char letter;
            double x;
            int y;
        };
        std::vector<Key> keys;
        for (int y = 0; y < 3; ++y) {
            const auto& [letters, offset] = rows[static_cast<size_t>(y)];
            for (int x = 0; letters[x] != 0; ++x) {
                keys.push_back({letters[x], x + offset, y});
            }
        }
        for (const Key& a : keys) {
            for (const Key& b : keys) {
                table[static_cast<size_t>(a.letter - 'a')][static_cast<size_t>(b.letter - 'a')] =
                    a.letter != b.letter && std::abs(a.y - b.y) <= 1 && std::abs(a.x - b.x) <= 1.01;
            }
        }
        return table;
    }();
    return made;
}

bool areNeighbours(char a, char b) {
    return isLetter(a) && isLetter(b) &&
           neighbours()[static_cast<size_t>(a - 'a')][static_cast<size_t>(b - 'a')];
}

double replaceCostOf(char a, char b) {
    if (isVowel(a) && isVowel(b)) {
        return vowelForVowel;
    }
    static constexpr std::array<const char*, 9> pairs = {"cs", "ck", "sz", "gj", "td",
                                                         "fv", "qk", "nm", "uw"};
    for (const char* pair : pairs) {
        if ((a == pair[0] && b == pair[1]) || (a == pair[1] && b == pair[0])) {
            return soundAlike;
        }
    }
    return areNeighbours(a, b) ? nextKey : otherLetter;
}

/// For every unknown word tens of thousands of letters are compared.
double replaceCost(char a, char b) {
    static const auto made = [] {
        std::array<std::array<double, 26>, 26> table{};
        for (char x = 'a'; x <= 'z'; ++x) {
            for (char y = 'a'; y <= 'z'; ++y) {
                table[static_cast<size_t>(x - 'a')][static_cast<size_t>(y - 'a')] = replaceCostOf(x, y);
            }
        }
        return table;
    }();
    return isLetter(a) && isLetter(b) ? made[static_cast<size_t>(a - 'a')][static_cast<size_t>(b - 'a')]
                                      : otherLetter;
}

/// Groups of letters that sound alike.
struct Sound {
    std::string_view typed;
    std::string_view meant;
    double cost;
};

/// By the last letters of both groups.
const std::vector<Sound>& sounds(char typed, char meant) {
    static const auto made = [] {
        std::array<std::array<std::vector<Sound>, 26>, 26> table;
        static constexpr Sound both[] = {
            {"f", "ph", 0.5},      {"f", "gh", 0.8},      {"k", "ck", 0.5},      {"c", "ck", 0.6},
            {"k", "ch", 0.7},      {"sion", "tion", 0.4}, {"shun", "tion", 0.6}, {"cion", "tion", 0.4},
            {"shon", "tion", 0.6}, {"ie", "ei", 0.4},     {"ey", "y", 0.5},      {"ie", "y", 0.6},
            {"ee", "ea", 0.5},     {"i", "ee", 0.8},      {"i", "ea", 0.9},      {"ou", "u", 0.7},
            {"u", "oo", 0.6},      {"u", "ew", 0.7},      {"oo", "ou", 0.7},     {"ow", "ou", 0.6},
            {"ei", "ai", 0.5},     {"ey", "ay", 0.5},     {"au", "aw", 0.5},     {"or", "er", 0.4},
            {"ar", "er", 0.4},     {"er", "re", 0.4},     {"le", "el", 0.4},     {"al", "el", 0.5},
            {"le", "al", 0.5},     {"il", "le", 0.6},     {"ance", "ence", 0.4}, {"ant", "ent", 0.4},
            {"ible", "able", 0.4}, {"w", "wh", 0.5},      {"n", "kn", 0.6},      {"r", "wr", 0.6},
            {"r", "rh", 0.6},      {"s", "sc", 0.6},      {"s", "ps", 0.7},      {"m", "mb", 0.6},
            {"m", "mn", 0.6},      {"ch", "tch", 0.5},    {"j", "dg", 0.6},      {"g", "gu", 0.7},
            {"t", "ght", 0.7},     {"te", "ght", 0.8},    {"o", "ough", 0.9},    {"uff", "ough", 0.9},
            {"x", "cks", 0.7},     {"x", "cc", 0.7},      {"x", "xc", 0.5},      {"ks", "x", 0.6},
            {"kw", "qu", 0.7},     {"sh", "ch", 0.8},     {"sh", "ti", 0.8},     {"sh", "ci", 0.8},
            {"ly", "lly", 0.4},    {"aly", "ally", 0.3},  {"ely", "ly", 0.5},    {"full", "ful", 0.3},
            {"eing", "ing", 0.4},  {"ys", "ies", 0.4},    {"yed", "ied", 0.4},   {"yer", "ier", 0.4},
            {"ys", "yes", 0.8},    {"z", "s", 0.6},       {"c", "s", 0.6},       {"c", "k", 0.6},
            {"ss", "c", 0.7},      {"s", "z", 0.6},
        };
        const auto add = [&](const Sound& sound) {
            table[static_cast<size_t>(sound.typed.back() - 'a')]
                 [static_cast<size_t>(sound.meant.back() - 'a')]
                     .push_back(sound);
        };
        for (const Sound& sound : both) {
            add(sound);
            add({sound.meant, sound.typed, sound.cost});
        }
        return table;
    }();
    static const std::vector<Sound> none;
    return isLetter(typed) && isLetter(meant)
               ? made[static_cast<size_t>(typed - 'a')][static_cast<size_t>(meant - 'a')]
               : none;
}

} // namespace

double slipCost(QByteArrayView typed, QByteArrayView meant, double limit) {
    const auto rows = static_cast<size_t>(typed.size());
    const auto columns = static_cast<size_t>(meant.size());
    if (rows > longestWord || columns > longestWord || rows + 3 < columns || columns + 3 < rows) {
        return limit + 1;
    }
    const std::string_view a(typed.data(), rows);
    const std::string_view b(meant.data(), columns);
    const double start = rows > 0 && columns > 0 && a.front() != b.front() ? wrongStart : 0;
    // Damerau and Levenshtein, with groups of letters for one another.
    double table[longestWord + 1][longestWord + 1];
    table[0][0] = start;
    for (size_t j = 1; j <= columns; ++j) {
        table[0][j] = start + static_cast<double>(j);
    }
    // A group of letters may reach back over three rows.
    std::array<double, 4> bests = {start, start, start, start};
    for (size_t i = 1; i <= rows; ++i) {
        double* row = table[i];
        row[0] = start + static_cast<double>(i);
        double best = row[0];
        const char x = a[i - 1];
        const bool doubledTyped = i > 1 && a[i - 2] == x;
        const double tooMuch = x == '\''      ? apostrophe
                               : doubledTyped ? doubling
                               : (i > 1 && areNeighbours(a[i - 2], x)) || (i < rows && areNeighbours(a[i], x))
                                   ? nextKeyToo
                                   : letterToo;
        // Cells further from the diagonal cost more than any limit.
        const size_t from = i > 4 ? i - 4 : 1;
        const size_t to = std::min(columns, i + 4);
        if (from > 1) {
            row[from - 1] = limit + 1;
        }
        for (size_t j = from; j <= to; ++j) {
            const char y = b[j - 1];
            double cost = table[i - 1][j - 1] + (x == y ? 0 : replaceCost(x, y));
            if (j < i + 4) {
                cost = std::min(cost, table[i - 1][j] + tooMuch);
            }
            const bool doubledMeant = j > 1 && b[j - 2] == y;
            cost = std::min(cost, row[j - 1] + (y == '\''                  ? apostrophe
                                                : doubledMeant             ? doubling
                                                : (isVowel(y) || y == 'h') ? silentMissing
                                                                           : letterMissing));
            if (i > 1 && j > 1 && x == b[j - 2] && a[i - 2] == y && x != y) {
                cost = std::min(cost, (i == 2 && j == 2 ? swappedStart : table[i - 2][j - 2]) + swapping);
            }
            for (const Sound& sound : sounds(x, y)) {
                const size_t p = sound.typed.size();
                const size_t q = sound.meant.size();
                if (i >= p && j >= q && a.compare(i - p, p, sound.typed) == 0 &&
                    b.compare(j - q, q, sound.meant) == 0 && (i - p == 0 || j - q + 4 >= i - p) &&
                    j - q <= i - p + 4 && (i - p > 0 || j - q == 0)) {
                    cost = std::min(cost, table[i - p][j - q] + sound.cost);
                }
            }
            row[j] = cost;
            best = std::min(best, cost);
        }
        if (to < columns) {
            row[to + 1] = limit + 1;
        }
        bests[i % 4] = best;
        if (*std::min_element(bests.begin(), bests.end()) > limit) {
            return limit + 1;
        }
    }
    return std::min(table[rows][columns], limit + 1);
}

} // namespace vellumline
