#include "VellumlineCore/HotkeyBinding.h"
