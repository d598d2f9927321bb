#pragma once

#include "Vellumline/Command.h"

#include <QObject>
#include <QStringList>
#include <memory>

namespace vellumline {

/// The application: picks the adapters of this desktop, puts the parts together and starts them. The only
/// place that knows both the rules and the adapters. Main thread only.
class VellumlineApp : public QObject {
    Q_OBJECT
  public:
    struct Options {
        QStringList links; ///< links of the program's scheme given on the command line, as they arrived
        std::optional<Command> command; ///< done once the program runs, or by the instance that runs already
        bool startedByBus = false;      ///< what the program was started for follows on the session bus
        bool startLocalService = true;  ///< when the origin is a loopback address
    };

    explicit VellumlineApp(Options options, QObject* parent = nullptr);
    ~VellumlineApp() override;

    /// Starts on the next turn of the main loop; ends the main loop when another instance took over or
    /// nothing works here.
    void start();
    /// Gives back what is borrowed and ends the main loop: the clipboard goes to the clipboard manager, a
    /// pending write of the session and the local service are waited for, each within its bound.
    void quit();

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace vellumline
