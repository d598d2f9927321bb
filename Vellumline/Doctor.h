#pragma once

#include "Vellumline/AuthConfig.h"
#include "Vellumline/Platform/ClipboardGuardian.h"
#include "Vellumline/Platform/Clock.h"
#include "Vellumline/Platform/DesktopSurvey.h"
#include "Vellumline/Platform/HTTPTransport.h"
#include "Vellumline/Platform/KeyEvents.h"
#include "Vellumline/Platform/Keychain.h"
#include "Vellumline/Platform/Pasteboard.h"
#include "Vellumline/RewriteOutcome.h"
#include "Vellumline/SelectionProbe.h"

#include <QByteArray>
#include <QCoroTask>
#include <QList>
#include <QString>
#include <optional>

namespace vellumline {

/// What one look at the desktop came to.
struct Finding {
    enum class Verdict {
        good,
        note,    ///< works, but not for everything or not as comfortably
        problem, ///< corrections fail, or cannot be had, until something is done
        skipped  ///< could not be tried
    };
    QString check; ///< its name in JSON
    QString title;
    Verdict verdict = Verdict::good;
    QString tried;
    QString seen;
    QString advice; ///< what to do; empty when there is nothing to do
};

/// The findings in the order in which they were made.
class DoctorReport {
  public:
    void add(Finding finding) { findings_.append(std::move(finding)); }
    const QList<Finding>& findings() const { return findings_; }
    /// Nothing found is a problem.
    bool isHealthy() const;
    QByteArray json(const QString& version) const;

    /// One finding for people to read, some lines.
    static QString text(const Finding& finding);
    QString summary() const;

  private:
    QList<Finding> findings_;
};

/// A window of our own with one text in it, for keys and corrections to arrive at.
class PracticeField {
  public:
    virtual ~PracticeField() = default;
    virtual void show() = 0;
    virtual bool hasKeyboard() const = 0;
    virtual void setText(const QString& text) = 0;
    virtual QString text() const = 0;
    virtual void selectAll() = 0;
    virtual void close() = 0;
};

/// The single looks at the desktop, each a judgement of facts or a trial that leaves nothing behind.
namespace examine {

inline const QString practiceSentence =
    QStringLiteral("i has went to the shop yesterday and buyed three apple.");

Finding display(const DisplayFacts& facts);
/// `version`: of the running program; nothing when none runs.
Finding program(const std::optional<QString>& version);
Finding shortcut(const QString& label, bool registered);
Finding accessibility(bool reached);
Finding focus(const QString& program, const ProbeAnswer& answer);
Finding tray(const TrayFacts& facts);
Finding links(const LinkFacts& facts);

QCoro::Task<Finding> clipboard(Pasteboard& pasteboard, Clock& clock);
/// Stores, reads and removes an item of its own.
QCoro::Task<Finding> keyring(Keychain& keychain);
QCoro::Task<Finding> service(HTTPTransport& transport, AuthConfig config, Clock& clock);
/// Copies and pastes in the field by key strokes, and gives the clipboard back.
QCoro::Task<Finding> keys(PracticeField& field, Pasteboard& pasteboard, ClipboardGuardian& guardian,
                          KeyEvents& keyEvents, SecureInput& secureInput, Clock& clock);

/// What came of a correction in the field. `text`: what is in it now; `status`: what the program says about
/// it.
Finding correction(const QString& text, const QString& status);
Finding correctionSkipped(const QString& why, const QString& advice);

} // namespace examine

} // namespace vellumline
