#include "Vellumline/Doctor.h"

#include "Vellumline/ClipboardSnapshot.h"
#include "VellumlineCore/HotkeyBinding.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

namespace vellumline {

namespace {

using namespace std::chrono_literals;
using Verdict = Finding::Verdict;

constexpr std::chrono::milliseconds poll = 20ms;
constexpr std::chrono::milliseconds longestFocus = 5s;
constexpr std::chrono::milliseconds longestKey = 2s;
constexpr std::chrono::milliseconds serviceTimeout = 5s;
constexpr int firstServerError = 500;

QString nameOf(Verdict verdict) {
    switch (verdict) {
    case Verdict::good:
        return QStringLiteral("ok");
    case Verdict::note:
        return QStringLiteral("note");
    case Verdict::problem:
        return QStringLiteral("problem");
    case Verdict::skipped:
        break;
    }
    return QStringLiteral("skipped");
}

qint64 millisecondsSince(std::chrono::nanoseconds begin, const Clock& clock) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(clock.monotonic() - begin).count();
}

/// Whether the condition comes true in that time. Asked again and again, as nothing announces it.
template<class Condition>
QCoro::Task<bool> within(std::chrono::milliseconds time, Clock& clock, Condition condition) {
    const auto deadline = clock.monotonic() + time;
    while (!condition()) {
        if (clock.monotonic() >= deadline)
            co_return false;
        co_await clock.sleepFor(poll);
    }
    co_return true;
}

} // namespace

bool DoctorReport::isHealthy() const {
    return std::ranges::none_of(findings_,
                                [](const Finding& finding) { return finding.verdict == Verdict::problem; });
}

QByteArray DoctorReport::json(const QString& version) const {
    QJsonArray list;
    for (const Finding& finding : findings_)
        list.append(QJsonObject{{QStringLiteral("check"), finding.check},
                                {QStringLiteral("title"), finding.title},
                                {QStringLiteral("verdict"), nameOf(finding.verdict)},
                                {QStringLiteral("tried"), finding.tried},
                                {QStringLiteral("seen"), finding.seen},
                                {QStringLiteral("advice"), finding.advice}});
    return QJsonDocument(QJsonObject{{QStringLiteral("version"), version},
                                     {QStringLiteral("healthy"), isHealthy()},
                                     {QStringLiteral("findings"), list}})
        .toJson();
}

QString DoctorReport::text(const Finding& finding) {
    constexpr int column = 9;
    const QString indent(column, QLatin1Char(' '));
    QString lines = nameOf(finding.verdict).leftJustified(column) + finding.title + QLatin1Char('\n');
    if (!finding.tried.isEmpty())
        lines += indent + QStringLiteral("tried: ") + finding.tried + QLatin1Char('\n');
    lines += indent + QStringLiteral("seen:  ") + finding.seen + QLatin1Char('\n');
    if (!finding.advice.isEmpty())
        lines += indent + QStringLiteral("to do: ") + finding.advice + QLatin1Char('\n');
    return lines;
}

QString DoctorReport::summary() const {
    const auto count = [this](Verdict verdict) {
        return std::ranges::count_if(
            findings_, [verdict](const Finding& finding) { return finding.verdict == verdict; });
    };
    return QStringLiteral("%1 ok, %2 to note, %3 skipped, %4 problems\n")
        .arg(count(Verdict::good))
        .arg(count(Verdict::note))
        .arg(count(Verdict::skipped))
        .arg(count(Verdict::problem));
}

namespace examine {

Finding display(const DisplayFacts& facts) {
    Finding finding{QStringLiteral("display"),
                    QStringLiteral("Display server"),
                    Verdict::good,
                    QStringLiteral("connected to the X server that DISPLAY names"),
                    {},
                    {}};
    if (!facts.connected) {
        finding.verdict = Verdict::problem;
        finding.seen = facts.display.isEmpty() ? QStringLiteral("DISPLAY is not set")
                                               : QStringLiteral("no answer from \"%1\"").arg(facts.display);
        if (!facts.waylandDisplay.isEmpty())
            finding.seen +=
                QStringLiteral("; there is a Wayland compositor, \"%1\"").arg(facts.waylandDisplay);
        finding.advice = QStringLiteral("Run it inside a desktop session; on Wayland, with Xwayland.");
        return finding;
    }
    QStringList seen = {QStringLiteral("X11 display %1").arg(facts.display)};
    seen.append(facts.windowManager.isEmpty() ? QStringLiteral("no window manager")
                                              : QStringLiteral("window manager %1").arg(facts.windowManager));
    if (!facts.desktop.isEmpty())
        seen.append(QStringLiteral("desktop %1").arg(facts.desktop));
    if (!facts.missing.isEmpty()) {
        seen.append(QStringLiteral("the server lacks %1").arg(facts.missing.join(QStringLiteral(", "))));
        finding.verdict = Verdict::problem;
        finding.advice = QStringLiteral("Use an X server with these extensions.");
    } else if (facts.sessionType == QStringLiteral("wayland") || !facts.waylandDisplay.isEmpty()) {
        seen.append(QStringLiteral("in a Wayland session"));
        finding.verdict = Verdict::note;
        finding.advice = QStringLiteral(
            "Only programs under Xwayland can be corrected. For all of them, log in to an X11 session.");
    } else if (facts.windowManager.isEmpty()) {
        finding.verdict = Verdict::note;
        finding.advice =
            QStringLiteral("Start a window manager: without one windows may not get the keyboard.");
    }
    finding.seen = seen.join(QStringLiteral(", "));
    return finding;
}

Finding program(const std::optional<QString>& version) {
    Finding finding{QStringLiteral("program"),
                    QStringLiteral("Running program"),
                    Verdict::good,
                    QStringLiteral("asked for its status on the session bus"),
                    {},
                    {}};
    if (version) {
        finding.seen = QStringLiteral("version %1 runs in this session").arg(*version);
    } else {
        finding.verdict = Verdict::note;
        finding.seen = QStringLiteral("it does not run in this session; what follows was tried without it");
        finding.advice = QStringLiteral("Start it with \"vellumline\", or from the application menu.");
    }
    return finding;
}

Finding shortcut(const QString& label, bool registered) {
    Finding finding{QStringLiteral("shortcut"),
                    QStringLiteral("Shortcut"),
                    Verdict::good,
                    QStringLiteral("registered %1 for every program").arg(label),
                    QStringLiteral("%1 starts a correction").arg(label),
                    {}};
    if (!registered) {
        finding.verdict = Verdict::problem;
        finding.seen = QStringLiteral("%1 belongs to another program").arg(label);
        finding.advice =
            QStringLiteral("Choose another one (\"vellumline settings\"), or bind "
                           "\"vellumline rewrite\" to a key in the desktop's keyboard settings.");
    }
    return finding;
}

Finding accessibility(bool reached) {
    Finding finding{QStringLiteral("accessibility"),
                    QStringLiteral("Accessibility bus"),
                    Verdict::good,
                    QStringLiteral("connected to the bus that org.a11y.Bus names"),
                    QStringLiteral("reached"),
                    {}};
    if (!reached) {
        finding.verdict = Verdict::problem;
        finding.seen = QStringLiteral("no answer");
        finding.advice = QStringLiteral(
            "Install the package at-spi2-core and log in again: without the bus nothing is corrected.");
    }
    return finding;
}

Finding focus(const QString& program, const ProbeAnswer& answer) {
    Finding finding{
        QStringLiteral("focus"),
        QStringLiteral("Focused application"),
        Verdict::note,
        QStringLiteral("asked what has the keyboard before this check opened a window of its own"),
        program.isEmpty() ? QStringLiteral("an unnamed program") : program,
        QStringLiteral("To look at another program: \"sleep 5; vellumline doctor\", and click into it.")};
    const auto sees = [&finding](const QString& what) { finding.seen += QStringLiteral(": ") + what; };
    switch (answer.kind) {
    case ProbeAnswer::Kind::editable:
        finding.verdict = Verdict::good;
        finding.advice.clear();
        sees(answer.selectedText
                 ? QStringLiteral("a text that can be changed, %n characters of it selected")
                       .replace(QStringLiteral("%n"), QString::number(answer.selectedText->size()))
                 : QStringLiteral("a text that can be changed; the selection comes by the clipboard"));
        break;
    case ProbeAnswer::Kind::emptySelection:
        finding.verdict = Verdict::good;
        finding.advice.clear();
        sees(QStringLiteral("a text that can be changed, nothing of it selected"));
        break;
    case ProbeAnswer::Kind::readOnly:
        sees(QStringLiteral("a text that cannot be changed there, such as a terminal's"));
        break;
    case ProbeAnswer::Kind::secure:
        sees(QStringLiteral("a password field, or the keyboard is held by a program; left alone"));
        break;
    case ProbeAnswer::Kind::unknown:
        sees(QStringLiteral("does not tell what has the keyboard; the clipboard is tried there"));
        break;
    }
    return finding;
}

Finding tray(const TrayFacts& facts) {
    Finding finding{QStringLiteral("tray"),
                    QStringLiteral("Status icons"),
                    Verdict::good,
                    QStringLiteral("looked for a panel that shows them, by both protocols"),
                    {},
                    {}};
    if (facts.host) {
        finding.seen = QStringLiteral("a panel shows StatusNotifierItems");
    } else if (facts.embedding) {
        finding.seen = QStringLiteral("a panel embeds icons");
    } else {
        finding.verdict = Verdict::note;
        finding.seen = QStringLiteral("no panel shows icons now; it appears when one comes up");
        finding.advice =
            QStringLiteral("Open the menu with \"vellumline open-menu\". On GNOME, an extension for "
                           "status icons shows it.");
    }
    return finding;
}

Finding links(const LinkFacts& facts) {
    Finding finding{QStringLiteral("links"),
                    QStringLiteral("Sign-in links"),
                    Verdict::good,
                    QStringLiteral("asked who opens vellumline:// links"),
                    {},
                    {}};
    if (facts.entry.isEmpty()) {
        finding.verdict = Verdict::problem;
        finding.seen = QStringLiteral("nobody");
        finding.advice =
            QStringLiteral("Install the program's package again, or in a build tree run "
                           "scripts/install-desktop-entry.sh: the browser cannot sign in without.");
    } else if (!facts.works) {
        finding.verdict = Verdict::problem;
        finding.seen = QStringLiteral("%1, which starts \"%2\", and there is no such program")
                           .arg(facts.entry, facts.program);
        finding.advice =
            QStringLiteral("Remove that entry from the applications folder, or install the program again.");
    } else {
        finding.seen = QStringLiteral("%1, which starts %2").arg(facts.entry, facts.program);
        finding.seen += facts.startedByBus
                            ? QStringLiteral("; the session bus can start it too")
                            : QStringLiteral("; the session bus does not know how to start it");
    }
    return finding;
}

QCoro::Task<Finding> clipboard(Pasteboard& pasteboard, Clock& clock) {
    Finding finding{QStringLiteral("clipboard"),
                    QStringLiteral("Clipboard"),
                    Verdict::good,
                    QStringLiteral("read everything that is on it"),
                    {},
                    {}};
    const auto begin = clock.monotonic();
    const PasteboardContents contents = co_await pasteboard.contents();
    const qint64 elapsed = millisecondsSince(begin, clock);
    qsizetype types = 0;
    qsizetype bytes = 0;
    for (const PasteboardItem& item : contents.items) {
        types += item.representations.size();
        for (const PasteboardRepresentation& each : item.representations)
            bytes += each.data.size();
    }
    finding.seen = types == 0
                       ? QStringLiteral("it is empty (%1 ms)").arg(elapsed)
                       : QStringLiteral("%1 types, %2 bytes, in %3 ms").arg(types).arg(bytes).arg(elapsed);
    switch (contents.completeness) {
    case PasteboardContents::Completeness::complete:
        break;
    case PasteboardContents::Completeness::partial:
        finding.verdict = Verdict::note;
        finding.seen += QStringLiteral("; a part of it could not be read");
        finding.advice = QStringLiteral("After a correction that part will be missing from the clipboard.");
        break;
    case PasteboardContents::Completeness::unreadable:
        finding.verdict = Verdict::problem;
        finding.seen = QStringLiteral("the program that offers it does not answer");
        finding.advice = QStringLiteral("Copy something else: nothing is corrected while it would be lost.");
        break;
    }
    co_return finding;
}

QCoro::Task<Finding> keyring(Keychain& keychain) {
    Finding finding{QStringLiteral("keyring"),
                    QStringLiteral("Keyring"),
                    Verdict::good,
                    QStringLiteral("stored, read and removed an item of its own"),
                    QStringLiteral("it keeps the session"),
                    {}};
    const QString service = QStringLiteral("com.kelthorne.vellumline.doctor");
    const QString account = QStringLiteral("trial");
    const QByteArray data = "kept";
    Keychain::Status status =
        co_await keychain.add(service, account, data, Keychain::Accessible::afterFirstUnlockThisDeviceOnly);
    QByteArray read;
    if (status == Keychain::Status::success) {
        const Keychain::Found found = co_await keychain.copyMatching(service, account);
        status = found.status;
        read = found.data;
        co_await keychain.remove(service, account);
    }
    if (status == Keychain::Status::success && read == data)
        co_return finding;
    finding.verdict = Verdict::note;
    if (status == Keychain::Status::locked) {
        finding.seen = QStringLiteral("it is locked, or has no default collection");
        finding.advice = QStringLiteral("Unlock it, for example with the desktop's password manager.");
    } else {
        finding.seen = QStringLiteral("no Secret Service answers");
        finding.advice =
            QStringLiteral("Start or install one (gnome-keyring, KWallet, KeePassXC). Without it "
                           "everything works, but you sign in again after each start.");
    }
    co_return finding;
}

QCoro::Task<Finding> service(HTTPTransport& transport, AuthConfig config, Clock& clock) {
    const QUrl address = AuthConfig::appending(config.backendURL, QStringLiteral("readyz"));
    Finding finding{QStringLiteral("service"),
                    QStringLiteral("Correction service"),
                    Verdict::good,
                    QStringLiteral("GET %1").arg(address.toString()),
                    {},
                    {}};
    HTTPRequest request;
    request.url = address;
    request.timeout = serviceTimeout;
    const auto begin = clock.monotonic();
    const auto answer = co_await transport.send(request);
    const qint64 elapsed = millisecondsSince(begin, clock);
    if (!answer) {
        finding.verdict = Verdict::problem;
        finding.seen = answer.error() == TransportError::timedOut
                           ? QStringLiteral("no answer in %1 ms").arg(elapsed)
                           : QStringLiteral("nobody answers there");
        finding.advice =
            AuthConfig::isLoopback(config.backendURL)
                ? QStringLiteral(
                      "Install the package vellumline-service, or start vellumline-service by hand and "
                      "read what it says.")
                : QStringLiteral("Look at the network connection and the proxy settings.");
    } else if (answer->status >= firstServerError) {
        finding.verdict = Verdict::problem;
        finding.seen = QStringLiteral("status %1 after %2 ms: %3")
                           .arg(answer->status)
                           .arg(elapsed)
                           .arg(QString::fromUtf8(answer->body.left(200)).simplified());
        finding.advice = QStringLiteral("It runs but cannot correct: its log says why (a dictionary or the "
                                        "language model may be missing).");
    } else {
        finding.seen = QStringLiteral("it answers, after %1 ms").arg(elapsed);
    }
    co_return finding;
}

QCoro::Task<Finding> keys(PracticeField& field, Pasteboard& pasteboard, ClipboardGuardian& guardian,
                          KeyEvents& keyEvents, SecureInput& secureInput, Clock& clock) {
    Finding finding{QStringLiteral("keys"),
                    QStringLiteral("Copy and paste by key strokes"),
                    Verdict::problem,
                    QStringLiteral("copied and pasted in a window of its own"),
                    {},
                    {}};
    field.setText(practiceSentence);
    field.show();
    const bool focused = co_await within(longestFocus, clock, [&field] { return field.hasKeyboard(); });
    if (!focused) {
        finding.seen = QStringLiteral("the window did not get the keyboard in 5 s");
        finding.advice =
            QStringLiteral("Click into the window when it opens. Some window managers keep new windows "
                           "from taking the keyboard.");
        co_return finding;
    }
    if (secureInput.isSecureEventInputEnabled()) {
        finding.seen = QStringLiteral("another program holds the keyboard");
        finding.advice = QStringLiteral("Close open menus and the screen locker, and try again.");
        co_return finding;
    }
    const ClipboardSnapshot before = co_await ClipboardSnapshot::capture(pasteboard);
    if (before.completeness() == ClipboardSnapshot::Completeness::unreadable) {
        finding.verdict = Verdict::skipped;
        finding.seen = QStringLiteral("not tried, as what is on the clipboard would be lost");
        co_return finding;
    }
    co_await guardian.hold(before.items());
    field.selectAll();
    const qint64 count = pasteboard.changeCount();
    keyEvents.postCommand(KeyCode::c);
    const bool copied = co_await within(longestKey, clock,
                                        [&pasteboard, count] { return pasteboard.changeCount() != count; });
    std::optional<QString> text;
    if (copied)
        text = co_await pasteboard.string();
    bool pasted = false;
    if (text == practiceSentence) {
        field.setText({});
        keyEvents.postCommand(KeyCode::v);
        pasted = co_await within(longestKey, clock, [&field] { return field.text() == practiceSentence; });
    }
    co_await ClipboardSnapshot::restore(before, pasteboard);
    guardian.settle();
    if (pasted) {
        finding.verdict = Verdict::good;
        finding.seen = QStringLiteral("both key strokes arrived");
    } else {
        finding.seen = !copied ? QStringLiteral("Ctrl+C did not arrive")
                       : text != practiceSentence
                           ? QStringLiteral("another program took the clipboard at once")
                           : QStringLiteral("Ctrl+V did not arrive");
        finding.advice =
            QStringLiteral("Close programs that remap keys or watch the clipboard, one by one, and try "
                           "again.");
    }
    co_return finding;
}

namespace {

Finding correctionTrial() {
    return {QStringLiteral("correction"),
            QStringLiteral("A real correction"),
            Verdict::good,
            QStringLiteral("had \"%1\" corrected in a window of its own").arg(practiceSentence),
            {},
            {}};
}

} // namespace

Finding correction(const QString& text, const QString& status) {
    Finding finding = correctionTrial();
    if (!text.isEmpty() && text != practiceSentence) {
        finding.seen = QStringLiteral("\"%1\"").arg(text);
    } else {
        finding.verdict = Verdict::problem;
        finding.seen = status.isEmpty() ? QStringLiteral("the text was not changed")
                                        : QStringLiteral("the text was not changed: %1").arg(status);
        finding.advice = QStringLiteral("The first problem above is the likely reason.");
    }
    return finding;
}

Finding correctionSkipped(const QString& why, const QString& advice) {
    Finding finding = correctionTrial();
    finding.verdict = Verdict::skipped;
    finding.seen = why;
    finding.advice = advice;
    return finding;
}

} // namespace examine

} // namespace vellumline
