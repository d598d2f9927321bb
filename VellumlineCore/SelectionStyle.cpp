#include "VellumlineCore/SelectionStyle.h"
