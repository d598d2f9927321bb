#pragma once

namespace vellumline {

/// From now on the kernel writes no core dump of this process and of those that it starts: neither to a file
/// nor to a collector such as systemd-coredump. The hard limit stays, so that a developer gets one all the
/// same, by `prlimit --pid PID --core=unlimited`.
void refuseCoreDumps();

/// Besides: no process without privileges can attach to this one or read its memory and environment, not even
/// of the same user. Not for a program that talks to the desktop's portals: they look at the caller's
/// /proc/PID/root, may not any more, and then refuse every call ("Portal operation not allowed: Unable to
/// open", seen with 1.16.0).
void refuseToBeInspected();

} // namespace vellumline
