#pragma once

#include "Vellumline/UpdateSignature.h"

#include <QString>
#include <QUrl>
#include <optional>

namespace vellumline {

/// Where this build looks for newer versions, and whose word it takes for them. Immutable.
struct UpdateFeed {
    QUrl url;
    UpdateKey key;

    /// The build's feed, or the one of a local test when the environment names one (VELLUMLINE_APPCAST,
    /// VELLUMLINE_APPCAST_KEY).
    static std::optional<UpdateFeed> shared();
    /// The feed for four texts: the build's address and key, and those of the environment, which replace both
    /// when their address is a loopback one and count for nothing otherwise. Nothing when the address is not
    /// HTTPS (or HTTP on a loopback host), names no file, or the key is none.
    static std::optional<UpdateFeed> resolve(const QString& url, const QString& key,
                                             const QString& localURL = {}, const QString& localKey = {});

    /// Where the feed's signature lies: the same address with ".sig" after its path.
    QUrl signatureURL() const;
};

} // namespace vellumline
