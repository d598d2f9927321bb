// A stored shortcut: key code, Carbon flags and label, whatever the settings file says.
#include "VellumlineCore/HotkeyBinding.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace vellumline;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 6)
        return 0;
    std::uint16_t keyCode = 0;
    std::uint32_t flags = 0;
    std::memcpy(&keyCode, data, sizeof keyCode);
    std::memcpy(&flags, data + 2, sizeof flags);
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data) + 6, static_cast<qsizetype>(size - 6));
    const HotkeyBinding restored = HotkeyBinding::restored(keyCode, flags, text);
    const auto check = HotkeyBinding::check(keyCode, HotkeyModifiers::fromCarbonFlags(flags), text);
    // What is restored could have been recorded, and what was recorded is restored.
    if (HotkeyBinding::check(restored.keyCode, restored.modifiers, text).kind !=
        HotkeyBinding::Check::Kind::accepted)
        std::abort();
    if (check.kind == HotkeyBinding::Check::Kind::accepted && restored.keyCode != keyCode)
        std::abort();
    return 0;
}
