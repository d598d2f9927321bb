#pragma once

#include "Vellumline/Platform/Pasteboard.h"
#include "Vellumline/Platform/X11/X11SelectionReader.h"
#include "Vellumline/Platform/X11/X11SelectionServer.h"

#include <QHash>
#include <QObject>
#include <QTimer>
#include <chrono>
#include <memory>
#include <optional>

namespace vellumline {

/// The CLIPBOARD selection of an X11 desktop, on a connection of its own. Main thread only.
class X11Pasteboard final : public QObject, public Pasteboard {
  public:
    struct Limits {
        /// An owner that answers nothing for so long is hung.
        std::chrono::milliseconds noProgress{1000};
        /// contents() stops after so long when it has what matters (text, rich text, one image)...
        std::chrono::milliseconds snapshotTime{1500};
        /// ...and stops in any case after so long.
        std::chrono::milliseconds longestSnapshot{4000};
        qsizetype snapshotBytes = qsizetype(160) << 20; ///< all representations together; string(), data()
        /// The next write waits so long for the target of a paste. With the 600 ms that the correction stays
        /// anyway this makes 3 s after the key.
        std::chrono::milliseconds pasteRead{2400};
        std::chrono::milliseconds handOver{1000}; ///< wait for the clipboard manager at the end
        X11SelectionServer::Limits serving;
    };

    /// Null when the display (DISPLAY when empty) cannot be opened or has no XFIXES extension.
    static std::unique_ptr<X11Pasteboard> open(const QByteArray& display, Limits limits);
    static std::unique_ptr<X11Pasteboard> open(const QByteArray& display = {});
    /// Ends every pending call first: reads as unreadable or without a value, writes as refused.
    ~X11Pasteboard() override;

    qint64 changeCount() const override;
    bool isFrom(quint64 window) const override;
    QCoro::Task<void> nextChange(std::chrono::milliseconds limit) override;
    QCoro::Task<PasteboardContents> contents() override;
    QCoro::Task<std::optional<QByteArray>> data(QString type) override;
    QCoro::Task<std::optional<QString>> string() override;
    QCoro::Task<void> clearContents() override;
    QCoro::Task<bool> write(QList<PasteboardItem> items) override;

    /// Before an orderly end of the program: asks the clipboard manager to keep what we offer, which would
    /// vanish with us. True when it has taken it; false when there is nothing of ours to keep, no manager, or
    /// no answer in time.
    QCoro::Task<bool> handToClipboardManager();

    bool ownsClipboard() const;
    /// The X server went away; every call ends at once.
    bool isLost() const { return closing_ || connection_->isBroken(); }

  private:
    /// The text that a paste was asked for, until its target has read it.
    struct PastedText {
        xcb_window_t targetWindow = XCB_WINDOW_NONE;
        bool targetGone = false;
    };
    struct Reading {
        PasteboardContents contents;
        bool ownerChanged = false;
    };
    struct Found {
        QByteArray data;
        QString target;
        QString encoding;
    };

    X11Pasteboard(std::unique_ptr<X11Connection> connection, Limits limits);
    bool start(const QByteArray& display, std::uint8_t fixesFirstEvent);

    void handle(const xcb_generic_event_t& event);
    void countChange();
    void lose();
    QCoro::Task<void> finishClear();
    QString nameOf(xcb_atom_t atom) const;

    QCoro::Task<std::optional<QStringList>> offeredTargets();
    QCoro::Task<Reading> readEverything();
    QCoro::Task<std::optional<Found>> find(QString type, qsizetype maximumBytes);
    std::optional<Found> findOwn(const QString& type) const;
    QCoro::Task<bool> takeOrRelease(QList<clipboardFormats::ServedTarget> targets);
    QCoro::Task<void> waitForPaste();
    xcb_window_t pasteTargetNow();
    void watchForDestruction(xcb_window_t window);

    std::unique_ptr<X11Connection> connection_;
    Limits limits_;
    std::uint8_t fixesFirstEvent_ = 0;
    xcb_atom_t clipboard_;
    xcb_atom_t targets_;

    qint64 changeCount_ = 1;
    X11Turn changeTurn_;
    X11Wait nextChange_;
    xcb_window_t owner_ = XCB_WINDOW_NONE;
    xcb_timestamp_t ownedSince_ = 0;
    qint64 ownerEvents_ = 0;
    bool closing_ = false;
    bool clearing_ = false;  ///< cleared for us, and for the others when clearTimer_ ends
    bool releasing_ = false; ///< the others are being told
    QTimer clearTimer_;

    std::unique_ptr<X11SelectionReader> reader_;
    X11Turn readTurn_;
    X11Wait ownerChange_;

    struct OfferedTargets {
        qint64 changeCount = 0;
        std::optional<QStringList> names;
    };
    std::optional<OfferedTargets> offered_;

    // What we own: written by write(), answered without the X server.
    QList<PasteboardItem> ownItems_;
    std::uint64_t generation_ = 0;
    std::uint64_t readersGeneration_ = 0;
    QHash<std::uint32_t, std::chrono::steady_clock::time_point> readers_; ///< who read it, and when last
    std::optional<PastedText> pasted_;
    X11Turn writeTurn_;
    X11Wait writeProgress_;

    std::unique_ptr<X11SelectionServer> server_; // last: its thread posts to this object
};

} // namespace vellumline
