#include "Vellumline/AuthConfig.h"
