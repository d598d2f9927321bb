#include "Vellumline/SessionRefresher.h"
