#pragma once

#include "Vellumline/Platform/KeyMonitor.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <functional>
#include <utility>

class QKeyEvent;

namespace vellumline {

/// Key presses of this program's windows, seen before any of them. Control is ⌃, Alt ⌥, Shift ⇧ and Meta
/// (Super) ⌘. Presses of modifier keys alone and auto-repeats are not reported; the repeats of a swallowed
/// press are swallowed with it. Main thread only.
class QtKeyMonitor final : public QObject, public KeyMonitor {
  public:
    /// The virtual key code of a native scan code; the text that it gives without modifiers.
    using KeyCodeSource = std::function<std::uint16_t(std::uint32_t scanCode)>;
    using CharacterSource = std::function<QString(std::uint32_t scanCode)>;

    /// Without a character source, or where it gives nothing, the name of the key stands for its text.
    explicit QtKeyMonitor(KeyCodeSource keyCodes, CharacterSource characters = {});
    ~QtKeyMonitor() override;

    /// Nothing when there is no application object yet.
    std::optional<Token> addLocalMonitor(Handler handler) override;
    void removeMonitor(Token token) override;

    bool eventFilter(QObject* receiver, QEvent* event) override;

  private:
    bool swallows(const QKeyEvent& event);
    KeyPress keyPress(const QKeyEvent& event) const;
    void watch();

    KeyCodeSource keyCodes_;
    CharacterSource characters_;
    QList<std::pair<Token, Handler>> monitors_;
    Token nextToken_ = 1;
    bool isInstalled_ = false;

    /// One press is several events, each for several receivers: all of them get the first one's answer.
    struct Press {
        std::uint64_t timestamp = 0;
        std::uint32_t scanCode = 0;
        int key = 0;
        bool operator==(const Press&) const = default;
    };
    static Press pressOf(const QKeyEvent& event);
    std::optional<Press> decided_;
    bool decidedToSwallow_ = false;
    QSet<std::uint32_t> swallowedAndDown_; ///< scan codes

    /// The last release. Qt takes a repeat for a release and a new press when the X server's two events reach
    /// it apart; the press of a repeat then bears the time of the release before it, to the millisecond.
    std::optional<Press> released_;
    bool releaseWasSwallowed_ = false;
};

} // namespace vellumline
