#include "VellumlineCore/Pkce.h"
