#include "VellumlineCore/RewriteReply.h"
