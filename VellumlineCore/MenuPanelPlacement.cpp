#include "VellumlineCore/MenuPanelPlacement.h"
