#include "Vellumline/AuthClient.h"
