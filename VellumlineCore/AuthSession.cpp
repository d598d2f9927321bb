#include "VellumlineCore/AuthSession.h"
