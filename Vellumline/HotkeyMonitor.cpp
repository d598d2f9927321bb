#include "Vellumline/HotkeyMonitor.h"

namespace vellumline {

HotkeyMonitor::HotkeyMonitor(Hotkeys& hotkeys) : hotkeys_(hotkeys) {}

HotkeyMonitor::~HotkeyMonitor() {
    if (hotKey_)
        hotkeys_.unregisterHotKey(*hotKey_);
    if (handlerInstalled_)
        hotkeys_.installHandler({}); // the service outlives this object and must not call into it
}

bool HotkeyMonitor::registerBinding(const HotkeyBinding& binding) {
    if (!handlerInstalled_) {
        handlerInstalled_ = hotkeys_.installHandler([this] {
            if (onPress)
                onPress();
        });
        if (!handlerInstalled_)
            return false;
    }
    if (hotKey_) {
        hotkeys_.unregisterHotKey(*hotKey_);
        hotKey_.reset();
    }
    hotKey_ = hotkeys_.registerHotKey(binding.keyCode, binding.modifiers.carbonFlags(), identity);
    return hotKey_.has_value();
}

} // namespace vellumline
