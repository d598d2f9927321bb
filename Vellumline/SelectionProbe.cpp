#include "Vellumline/SelectionProbe.h"
