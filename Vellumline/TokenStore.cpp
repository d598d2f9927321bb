#include "Vellumline/TokenStore.h"
