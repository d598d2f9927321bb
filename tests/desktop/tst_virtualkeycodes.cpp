#include "Vellumline/Platform/X11/VirtualKeyCodes.h"

#include <QSet>
#include <QTest>
#include <xkbcommon/xkbcommon.h>

using namespace vellumline;

/// The table against an independent one: the key names and symbols of the system's own keyboard description.
class VirtualKeyCodesTest : public QObject {
    Q_OBJECT

  private:
    xkb_context* context_ = nullptr;
    xkb_keymap* keymap_ = nullptr;

  private Q_SLOTS:
    void initTestCase() {
        context_ = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        const xkb_rule_names names{"evdev", "pc105", "us", "", ""};
        keymap_ = xkb_keymap_new_from_names(context_, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
        QVERIFY(keymap_ != nullptr);
    }
    void cleanupTestCase() {
        xkb_keymap_unref(keymap_);
        xkb_context_unref(context_);
    }

    void aDescribedCodeStandsOnTheKeyThatAUSKeyboardLabelsSo_data() {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("symbol");
        const std::pair<int, const char*> keys[] = {
            {0, "a"},
            {1, "s"},
            {2, "d"},
            {3, "f"},
            {4, "h"},
            {5, "g"},
            {6, "z"},
            {7, "x"},
            {8, "c"},
            {9, "v"},
            {11, "b"},
            {12, "q"},
            {13, "w"},
            {14, "e"},
            {15, "r"},
            {16, "y"},
            {17, "t"},
            {18, "1"},
            {19, "2"},
            {20, "3"},
            {21, "4"},
            {22, "6"},
            {23, "5"},
            {24, "equal"},
            {25, "9"},
            {26, "7"},
            {27, "minus"},
            {28, "8"},
            {29, "0"},
            {30, "bracketright"},
            {31, "o"},
            {32, "u"},
            {33, "bracketleft"},
            {34, "i"},
            {35, "p"},
            {36, "Return"},
            {37, "l"},
            {38, "j"},
            {39, "apostrophe"},
            {40, "k"},
            {41, "semicolon"},
            {42, "backslash"},
            {43, "comma"},
            {44, "slash"},
            {45, "n"},
            {46, "m"},
            {47, "period"},
            {48, "Tab"},
            {49, "space"},
            {50, "grave"},
            {51, "BackSpace"},
            {53, "Escape"},
            {54, "Super_R"},
            {55, "Super_L"},
            {56, "Shift_L"},
            {57, "Caps_Lock"},
            {58, "Alt_L"},
            {59, "Control_L"},
            {60, "Shift_R"},
            {61, "Alt_R"},
            {62, "Control_R"},
            {65, "KP_Delete"},
            {67, "KP_Multiply"},
            {69, "KP_Add"},
            {71, "Num_Lock"},
            {75, "KP_Divide"},
            {76, "KP_Enter"},
            {78, "KP_Subtract"},
            {81, "KP_Equal"},
            {82, "KP_Insert"},
            {83, "KP_End"},
            {84, "KP_Down"},
            {85, "KP_Next"},
            {86, "KP_Left"},
            {87, "KP_Begin"},
            {88, "KP_Right"},
            {89, "KP_Home"},
            {91, "KP_Up"},
            {92, "KP_Prior"},
            {96, "F5"},
            {97, "F6"},
            {98, "F7"},
            {99, "F3"},
            {100, "F8"},
            {101, "F9"},
            {103, "F11"},
            {109, "F10"},
            {110, "Menu"},
            {111, "F12"},
            {114, "Insert"},
            {115, "Home"},
            {116, "Prior"},
            {117, "Delete"},
            {118, "F4"},
            {119, "End"},
            {120, "F2"},
            {121, "Next"},
            {122, "F1"},
            {123, "Left"},
            {124, "Right"},
            {125, "Down"},
            {126, "Up"},
        };
        for (const auto& [code, symbol] : keys)
            QTest::addRow("%d is %s", code, symbol) << code << QString::fromLatin1(symbol);
    }
    void aDescribedCodeStandsOnTheKeyThatAUSKeyboardLabelsSo() {
        QFETCH(int, code);
        QFETCH(QString, symbol);
        const auto x = VirtualKeyCodes::xKeyCode(static_cast<std::uint16_t>(code));
        const xkb_keysym_t* symbols = nullptr;
        QCOMPARE(xkb_keymap_key_get_syms_by_level(keymap_, x, 0, 0, &symbols), 1);
        char name[64] = {};
        xkb_keysym_get_name(symbols[0], name, sizeof name);
        QCOMPARE(QString::fromLatin1(name), symbol);
        QCOMPARE(VirtualKeyCodes::virtualKeyCode(x), static_cast<std::uint16_t>(code));
    }

    void theIsoKeyBesideTheLeftShiftHasItsOwnCode() {
        QCOMPARE(int(VirtualKeyCodes::xKeyCode(10)), int(xkb_keymap_key_by_name(keymap_, "LSGT")));
    }

    void everyKeyHasOneCodeAndComesBack() {
        QSet<int> seen;
        for (std::uint32_t x = 8; x <= 255; ++x) {
            const auto code = VirtualKeyCodes::virtualKeyCode(x);
            QVERIFY2(!seen.contains(code), qPrintable(QString::number(x)));
            seen.insert(code);
            QCOMPARE(std::uint32_t{VirtualKeyCodes::xKeyCode(code)}, x);
        }
    }
    void everyOtherCodeHasNoKeyOrComesBack() {
        for (int code = 0; code <= 0xffff; ++code) {
            const auto x = VirtualKeyCodes::xKeyCode(static_cast<std::uint16_t>(code));
            if (x != 0)
                QCOMPARE(int(VirtualKeyCodes::virtualKeyCode(x)), code);
        }
        QCOMPARE(int(VirtualKeyCodes::xKeyCode(0xffff)), 0);
    }
    void keyCodesThatXDoesNotHaveAnswerNone() {
        for (const std::uint32_t x : {0U, 7U, 256U, 0xffffffffU})
            QCOMPARE(int(VirtualKeyCodes::virtualKeyCode(x)), 0xffff);
    }
};

QTEST_GUILESS_MAIN(VirtualKeyCodesTest)
#include "tst_virtualkeycodes.moc"
