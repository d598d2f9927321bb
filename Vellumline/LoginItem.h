#pragma once

#include "Vellumline/Platform/LoginService.h"

namespace vellumline::LoginItem {

/// Registers or unregisters the program to open at login; false when the system refuses.
inline bool set(LoginService& service, bool on) {
    return on ? service.registerService() : service.unregisterService();
}

} // namespace vellumline::LoginItem
