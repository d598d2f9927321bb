#include "VellumlineCore/AppLink.h"
