#pragma once

#include "Vellumline/Platform/LoginService.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace vellumline {

/// Opening at login through an entry in the user's autostart folder (Desktop Application Autostart
/// Specification). Main thread only; small local files, nothing else.
class XdgAutostart final : public LoginService {
  public:
    struct Entry {
        QString identifier;      ///< The file is named after it, with ".desktop".
        QString name;            ///< Shown by the desktop's settings.
        QStringList commandLine; ///< The program, by absolute path, and its arguments.
    };

    /// `configHome` and `configDirectories` are those of the XDG base directory specification unless given.
    explicit XdgAutostart(Entry entry, const QString& configHome = {},
                          const std::optional<QStringList>& configDirectories = std::nullopt);

    /// Enabled: an entry that the desktop will start. notFound: the entry is there but its program is not.
    Status status() const override;
    bool registerService() override;
    bool unregisterService() override;

    QString path() const;
    /// An Exec value of the Desktop Entry Specification for a command line.
    static QString execValue(const QStringList& commandLine);

  private:
    bool write(const QByteArray& contents) const;
    bool isInstalledForEverybody() const;

    Entry entry_;
    QString userFolder_;
    QStringList systemFolders_;
};

} // namespace vellumline
