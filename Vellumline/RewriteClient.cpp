#include "Vellumline/RewriteClient.h"
