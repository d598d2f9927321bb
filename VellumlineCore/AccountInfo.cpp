#include "VellumlineCore/AccountInfo.h"
