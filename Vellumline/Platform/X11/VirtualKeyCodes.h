#pragma once

#include <cstdint>

/// Virtual key codes name the places of a keyboard; an X server with evdev key codes (every one on Linux)
/// names the same places by other numbers. Both directions are total and inverse to each other: a place
/// without a described code has one above 0xff.
namespace vellumline::VirtualKeyCodes {

/// The X key code at that place; 0 when no X key code can stand for it.
std::uint8_t xKeyCode(std::uint16_t virtualKeyCode);

/// The virtual key code of that place; `xKeyCode` 8 to 255, anything else answers 0xffff.
std::uint16_t virtualKeyCode(std::uint32_t xKeyCode);

} // namespace vellumline::VirtualKeyCodes
