#include "Vellumline/LaunchAtLoginToggle.h"

#include "Vellumline/AppModel.h"
#include "Vellumline/Style.h"

#include <QSignalBlocker>

namespace vellumline {

void bindLaunchAtLogin(Style::Toggle* toggle, AppModel& model) {
    const auto show = [toggle, &model] {
        const QSignalBlocker quiet(toggle);
        toggle->setChecked(model.launchAtLogin());
    };
    QObject::connect(toggle, &QCheckBox::toggled, &model, [&model, show](bool on) {
        model.setLaunchAtLogin(on);
        show(); // a refusal changes nothing in the model, and nothing is announced then
    });
    QObject::connect(&model, &AppModel::launchAtLoginChanged, toggle, show);
    show();
}

} // namespace vellumline
