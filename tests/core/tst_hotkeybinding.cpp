#include "VellumlineCore/HotkeyBinding.h"

#include <QTest>

using namespace vellumline;
using Check = HotkeyBinding::Check;

namespace {

class MemoryDefaults : public UserDefaults {
  public:
    bool contains(const QString& key) const override { return values.contains(key); }
    qint64 integer(const QString& key) const override { return values.value(key).toLongLong(); }
    QString string(const QString& key) const override { return values.value(key).toString(); }
    bool boolean(const QString& key) const override { return values.value(key).toBool(); }
    void set(const QString& key, const QVariant& value) override { values.insert(key, value); }
    void remove(const QString& key) override { values.remove(key); }
    QHash<QString, QVariant> values;
};

constexpr auto control = HotkeyModifiers::control;
constexpr auto option = HotkeyModifiers::option;
constexpr auto shift = HotkeyModifiers::shift;
constexpr auto command = HotkeyModifiers::command;

const QString keyCodeKey = QStringLiteral("vellumline.hotkey.keyCode");
const QString modifiersKey = QStringLiteral("vellumline.hotkey.modifiers");
const QString keyLabelKey = QStringLiteral("vellumline.hotkey.keyLabel");

} // namespace

class HotkeyBindingTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void modifiersHaveTheirBitsFlagsAndOrder() {
        QCOMPARE((control | option).rawValue, 3);
        QCOMPARE((command | shift | option | control).symbols(), QStringLiteral("⌃⌥⇧⌘"));
        QCOMPARE((command | shift | option | control).carbonFlags(), 0x1B00U);
        QCOMPARE(control.carbonFlags(), 0x1000U);
        QCOMPARE(option.carbonFlags(), 0x800U);
        QCOMPARE(shift.carbonFlags(), 0x200U);
        QCOMPARE(command.carbonFlags(), 0x100U);
        QCOMPARE(HotkeyModifiers::fromCarbonFlags(0xFFFFE4FF), HotkeyModifiers{});
        for (int raw = 0; raw < 16; ++raw)
            QCOMPARE(HotkeyModifiers::fromCarbonFlags(HotkeyModifiers{raw}.carbonFlags()).rawValue, raw);
    }

    void theDefaultIsControlOptionR() {
        QCOMPARE(HotkeyBinding::defaultBinding().label(), QStringLiteral("⌃⌥R"));
        QCOMPARE(HotkeyBinding::defaultBinding().keyCode, 15);
    }

    void aPressNeedsAMainModifier() {
        QCOMPARE(HotkeyBinding::check(3, shift, QStringLiteral("f")).kind, Check::Kind::needsModifier);
        QCOMPARE(HotkeyBinding::check(3, {}, QStringLiteral("f")).kind, Check::Kind::needsModifier);
        const Check check = HotkeyBinding::check(15, control | option, QStringLiteral("r"));
        QCOMPARE(check.kind, Check::Kind::accepted);
        QCOMPARE(check.binding.label(), QStringLiteral("⌃⌥R"));
    }

    void theSystemsShortcutsAreReserved_data() {
        QTest::addColumn<int>("keyCode");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<QString>("characters");
        QTest::addColumn<QString>("label");
        const auto row = [](int keyCode, HotkeyModifiers modifiers, const char* characters,
                            const char* label) {
            QTest::newRow(label) << keyCode << modifiers.rawValue << QString::fromUtf8(characters)
                                 << QString::fromUtf8(label);
        };
        row(8, command, "c", "⌘C");
        row(9, command, "v", "⌘V");
        row(7, command, "x", "⌘X");
        row(6, command, "z", "⌘Z");
        row(6, shift | command, "z", "⇧⌘Z");
        row(0, command, "a", "⌘A");
        row(12, command, "q", "⌘Q");
        row(13, command, "w", "⌘W");
        row(4, command, "h", "⌘H");
        row(46, command, "m", "⌘M");
        row(48, command, "\t", "⌘Tab");
        row(49, command, " ", "⌘Space");
        row(49, control, " ", "⌃Space");
        row(49, option | command, " ", "⌥⌘Space");
        row(53, option | command, "\x1b", "⌥⌘Esc");
    }
    void theSystemsShortcutsAreReserved() {
        QFETCH(const int, keyCode);
        QFETCH(const int, modifiers);
        QFETCH(const QString, characters);
        QFETCH(const QString, label);
        const auto code = static_cast<std::uint16_t>(keyCode);
        const Check check = HotkeyBinding::check(code, {modifiers}, characters);
        QCOMPARE(check.kind, Check::Kind::reserved);
        QCOMPARE(check.reservedLabel, label);
        // One modifier more is another shortcut.
        const HotkeyModifiers more = HotkeyModifiers{modifiers} | control | option | shift | command;
        QCOMPARE(HotkeyBinding::check(code, more, characters).kind, Check::Kind::accepted);
    }

    void theModifiersMustMatchExactly() {
        QCOMPARE(HotkeyBinding::check(49, control | command, QStringLiteral(" ")).kind,
                 Check::Kind::accepted);
    }

    void keysHaveTheirLabels_data() {
        QTest::addColumn<int>("keyCode");
        QTest::addColumn<QString>("characters");
        QTest::addColumn<QString>("label");
        QTest::newRow("Return") << 36 << QStringLiteral("\r") << QStringLiteral("Return");
        QTest::newRow("Delete") << 51 << QStringLiteral("x") << QStringLiteral("Delete");
        QTest::newRow("F5 whatever it reports") << 96 << QStringLiteral("q") << QStringLiteral("F5");
        QTest::newRow("F1") << 122 << QString() << QStringLiteral("F1");
        QTest::newRow("F12") << 111 << QString() << QStringLiteral("F12");
        QTest::newRow("upper case") << 41 << QStringLiteral("ö") << QStringLiteral("Ö");
        QTest::newRow("trimmed") << 41 << QStringLiteral(" é\n") << QStringLiteral("É");
        QTest::newRow("nothing") << 71 << QString() << QStringLiteral("Key71");
        QTest::newRow("white space") << 71 << QStringLiteral(" \t") << QStringLiteral("Key71");
    }
    void keysHaveTheirLabels() {
        QFETCH(const int, keyCode);
        QFETCH(const QString, characters);
        QFETCH(const QString, label);
        QCOMPARE(HotkeyBinding::keyLabelFor(static_cast<std::uint16_t>(keyCode), characters), label);
        QCOMPARE(
            HotkeyBinding::check(static_cast<std::uint16_t>(keyCode), control, characters).binding.label(),
            QStringLiteral("⌃") + label);
    }

    void everyFunctionKeyIsKnown() {
        QCOMPARE(KeyCode::functionKeys().size(), 12);
        QCOMPARE(KeyCode::functionKeys().value(99), QStringLiteral("F3"));
        QCOMPARE(KeyCode::functionKeys().value(103), QStringLiteral("F11"));
    }

    void aBindingComesBack() {
        MemoryDefaults defaults;
        QCOMPARE(HotkeyBinding::load(defaults), HotkeyBinding::defaultBinding());
        const HotkeyBinding binding{96, control | command, QStringLiteral("F5")};
        binding.save(defaults);
        QCOMPARE(HotkeyBinding::load(defaults), binding);
        QCOMPARE(defaults.values.value(keyCodeKey).toInt(), 96);
        QCOMPARE(defaults.values.value(modifiersKey).toInt(), 0x1100); // Carbon flags, not the set's bits
        QCOMPARE(defaults.values.value(keyLabelKey).toString(), QStringLiteral("F5"));
        QCOMPARE(defaults.values.size(), 3);
    }

    void aStoredLabelIsNotComputedAgain() {
        QCOMPARE(HotkeyBinding::restored(15, 0x1800, QStringLiteral("odd")).label(), QStringLiteral("⌃⌥odd"));
    }

    void whatCouldNotBeRecordedLoadsAsTheDefault() {
        MemoryDefaults defaults;
        defaults.set(keyCodeKey, 3);
        defaults.set(modifiersKey, 0x200);
        QCOMPARE(HotkeyBinding::load(defaults), HotkeyBinding::defaultBinding());
        defaults.set(modifiersKey, 0);
        QCOMPARE(HotkeyBinding::load(defaults), HotkeyBinding::defaultBinding());
        defaults.set(keyCodeKey, 8);
        defaults.set(modifiersKey, 0x100);
        QCOMPARE(HotkeyBinding::load(defaults), HotkeyBinding::defaultBinding());
    }

    void aMissingLabelIsAQuestionMark() {
        MemoryDefaults defaults;
        defaults.set(keyCodeKey, 3);
        defaults.set(modifiersKey, 0x1000);
        QCOMPARE(HotkeyBinding::load(defaults).label(), QStringLiteral("⌃?"));
    }

    void onlyTheLowBitsOfStoredNumbersCount() {
        MemoryDefaults defaults;
        defaults.set(keyCodeKey, qint64(0x70003));
        defaults.set(modifiersKey, qint64(0x700001000));
        defaults.set(keyLabelKey, QStringLiteral("F"));
        QCOMPARE(HotkeyBinding::load(defaults), (HotkeyBinding{3, control, QStringLiteral("F")}));
        defaults.set(keyCodeKey, QStringLiteral("not a number"));
        QCOMPARE(HotkeyBinding::load(defaults).keyCode, 0);
    }
};

QTEST_GUILESS_MAIN(HotkeyBindingTest)
#include "tst_hotkeybinding.moc"
