#pragma once

#include <tl/expected.hpp>

namespace vellumline {

/// The four errors that every service call can end in.
enum class APIError {
    signedOut, ///< no usable session: none stored, the refresh token refused, or the renewed token refused
               ///< too
    offline,   ///< the network or the host cannot be reached, or a needed renewal could not be made
    timedOut,  ///< the request timed out
    failed     ///< anything else
};

template<class T> using APIResult = tl::expected<T, APIError>;

} // namespace vellumline
