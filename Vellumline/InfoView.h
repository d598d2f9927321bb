#pragma once

#include <QString>
#include <QUrl>
#include <QWidget>
#include <functional>

namespace vellumline {

/// The about page of the menu panel: version, author, contact. Main thread only.
class InfoView : public QWidget {
    Q_OBJECT
  public:
    struct Facts {
        QString version; ///< empty in a build without one: the row is left out
        QString developer;
        QUrl website;
        QString email;
    };
    struct Actions {
        std::function<void(QUrl)> openLink;
        std::function<void()> onDone;
    };

    /// The facts of this build.
    static Facts facts(const QUrl& website);

    InfoView(const Facts& facts, Actions actions, QWidget* parent = nullptr);

  private:
    QLayout* factRow(const QString& name, QWidget* value);
    QWidget* link(const QString& text, const QUrl& target);

    Actions actions_;
};

} // namespace vellumline
