#pragma once

#include <QObject>
#include <memory>

namespace vellumline {

/// `vellumline doctor`: looks at this desktop with the program's own adapters, says what it finds, and ends
/// the process; a running program is asked, not disturbed. Main thread only.
class DoctorApp : public QObject {
    Q_OBJECT
  public:
    enum class Form { text, json };

    explicit DoctorApp(Form form, QObject* parent = nullptr);
    ~DoctorApp() override;

    /// The process ends with 0 when nothing found is a problem, otherwise with 1.
    void start();

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace vellumline
