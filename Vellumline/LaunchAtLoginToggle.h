#pragma once

namespace vellumline {

class AppModel;

namespace Style {
class Toggle;
}

/// Binds the "Open at login" switch to the model: it shows what is, which after a refusal is not what was
/// wished.
void bindLaunchAtLogin(Style::Toggle* toggle, AppModel& model);

} // namespace vellumline
