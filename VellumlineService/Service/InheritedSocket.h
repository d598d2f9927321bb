#pragma once

namespace vellumline {

/// The listening socket that whoever started this process hands over (sd_listen_fds(3)).
struct InheritedSocket {
    int count = 0;       ///< how many there are
    int descriptor = -1; ///< the only one

    /// Reads what the environment says, and takes it out of there: it is not meant for processes that this
    /// one starts.
    static InheritedSocket take();
};

} // namespace vellumline
