#include "Vellumline/API.h"
