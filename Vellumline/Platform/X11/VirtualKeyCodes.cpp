#include "Vellumline/Platform/X11/VirtualKeyCodes.h"

#include <array>

namespace vellumline::VirtualKeyCodes {

namespace {

struct Place {
    std::uint8_t x;
    std::uint8_t code;
};

// Left: the evdev key code plus 8, as X numbers the place. Right: the virtual key code. The comments print
// what a US keyboard shows there.
constexpr Place places[] = {
    // Escape, and the row of digits
    {9, 53}, // Escape
    {49, 50},
    {10, 18},
    {11, 19},
    {12, 20},
    {13, 21},
    {14, 23},
    {15, 22}, // ` 1 2 3 4 5 6
    {16, 26},
    {17, 28},
    {18, 25},
    {19, 29},
    {20, 27},
    {21, 24},
    {22, 51}, // 7 8 9 0 - = ⌫
    // The three rows of letters
    {23, 48},
    {24, 12},
    {25, 13},
    {26, 14},
    {27, 15},
    {28, 17},
    {29, 16}, // Tab q w e r t y
    {30, 32},
    {31, 34},
    {32, 31},
    {33, 35},
    {34, 33},
    {35, 30},
    {51, 42}, // u i o p [ ] backslash
    {66, 57},
    {38, 0},
    {39, 1},
    {40, 2},
    {41, 3},
    {42, 5},
    {43, 4}, // Caps a s d f g h
    {44, 38},
    {45, 40},
    {46, 37},
    {47, 41},
    {48, 39},
    {36, 36}, // j k l ; ' Return
    {94, 10},
    {52, 6},
    {53, 7},
    {54, 8},
    {55, 9},
    {56, 11},
    {57, 45}, // ISO< z x c v b n
    {58, 46},
    {59, 43},
    {60, 47},
    {61, 44}, // m , . /
    // Modifiers and the bottom row
    {50, 56},
    {62, 60},
    {37, 59},
    {105, 62},
    {64, 58},
    {108, 61},
    {133, 55},
    {134, 54}, // Shift … Super
    {65, 49},
    {135, 110}, // Space Menu
    // Function keys
    {67, 122},
    {68, 120},
    {69, 99},
    {70, 118},
    {71, 96},
    {72, 97},
    {73, 98},
    {74, 100}, // F1 … F8
    {75, 101},
    {76, 109},
    {95, 103},
    {96, 111},
    {191, 105},
    {192, 107},
    {193, 113}, // F9 … F15
    {194, 106},
    {195, 64},
    {196, 79},
    {197, 80},
    {198, 90}, // F16 … F20
    // Editing keys and arrows; Insert stands where Help stood
    {118, 114},
    {119, 117},
    {110, 115},
    {115, 119},
    {112, 116},
    {117, 121}, // Ins Del Home End PgUp PgDn
    {111, 126},
    {116, 125},
    {113, 123},
    {114, 124}, // Up Down Left Right
    // Keypad; Num Lock stands where Clear stood
    {77, 71},
    {106, 75},
    {63, 67},
    {82, 78},
    {86, 69},
    {104, 76},
    {91, 65},
    {125, 81}, // Num / * - + Enter . =
    {90, 82},
    {87, 83},
    {88, 84},
    {89, 85},
    {83, 86},
    {84, 87},
    {85, 88},
    {79, 89}, // 0 … 7
    {80, 91},
    {81, 92}, // 8 9
    // Keys of Japanese keyboards
    {132, 93},
    {97, 94},
    {129, 95},
    {102, 102},
    {100, 104}, // ¥ _ keypad, Eisu Kana
    // Sound and power
    {121, 74},
    {122, 73},
    {123, 72},
    {124, 127}, // mute down up power
};

constexpr std::uint16_t unnamed = 0x100; ///< plus the X key code: Print, Scroll Lock, Pause, media keys …
constexpr std::uint32_t firstX = 8, lastX = 255;
constexpr std::uint16_t none = 0xffff;

struct Tables {
    std::array<std::uint16_t, lastX + 1> fromX{};
    std::array<std::uint8_t, 128> toX{};
};

constexpr Tables tables = [] {
    Tables result;
    for (std::uint32_t x = 0; x <= lastX; ++x)
        result.fromX[x] = x < firstX ? none : static_cast<std::uint16_t>(unnamed + x);
    for (const auto& place : places) {
        result.fromX[place.x] = place.code;
        result.toX[place.code] = place.x;
    }
    return result;
}();

} // namespace

std::uint8_t xKeyCode(std::uint16_t virtualKeyCode) {
    if (virtualKeyCode < tables.toX.size())
        return tables.toX[virtualKeyCode];
    const std::uint32_t x = virtualKeyCode - std::uint32_t{unnamed};
    // A place that has a described code answers to that one alone.
    const bool isUnnamed = x >= firstX && x <= lastX && tables.fromX[x] == virtualKeyCode;
    return isUnnamed ? static_cast<std::uint8_t>(x) : std::uint8_t{0};
}

std::uint16_t virtualKeyCode(std::uint32_t xKeyCode) {
    return xKeyCode <= lastX ? tables.fromX[xKeyCode] : none;
}

} // namespace vellumline::VirtualKeyCodes
