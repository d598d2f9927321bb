#include "VellumlineHardening/CoreDumps.h"

#include <algorithm>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace vellumline {

void refuseCoreDumps() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_CORE, &limit) != 0)
        return;
    // Not 0: with a collector the kernel does not look at the limit, except that 1 means "not at all"
    // (core(5), fs/coredump.c). For a file 1 byte is too little for any.
    limit.rlim_cur = std::min<rlim_t>(1, limit.rlim_max);
    setrlimit(RLIMIT_CORE, &limit);
}

void refuseToBeInspected() {
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

} // namespace vellumline
