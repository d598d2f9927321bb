#include "Vellumline/AccountClient.h"
