#pragma once

#include "Base/Bytes.h"
#include "PlatformUpdate/NetworkFetch.h"
#include "StateKit/MainLoop.h"
#include "Text/Url.h"
#include "UpdateKit/Outcome.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include <QList>
#include <QNetworkReply>
#include <QSslCertificate>

class QNetworkAccessManager;

/// Fetches manifests and archives from https, http and file URLs.
///
/// Redirects are followed, at most 10, within https and http, but never from https to http. A server's answer is
/// taken whatever its status. Certificates are those of the system. Nothing is compressed on the way or kept in a
/// cache, and no cookies are sent. An answer that is shorter than it claims fails. If an answer in chunks breaks off,
/// the toolkit does not always report it, so whoever reads a manifest or an archive must find its end.
///
/// One thread, whose Qt event loop must turn: used and destroyed there; it may be made on another. A failure completes
/// with a `FetchError`. An operation returns a handle, and dropping that calls it off; drop it before this object dies.
class UpdateFetcher {
public:
    using Handle = std::shared_ptr<void>;

    static constexpr std::uint64_t maxManifest = std::uint64_t(64) << 10;  // bytes
    static constexpr std::uint64_t maxArchive = std::uint64_t(1) << 30;    // bytes
    static constexpr Seconds manifestTime = 30;

    /// @param loop  for the time-outs; of the same thread
    /// @param authorities  the ones to trust instead of the system's
    explicit UpdateFetcher(MainLoop& loop, std::optional<QList<QSslCertificate>> authorities = {});
    ~UpdateFetcher();
    UpdateFetcher(const UpdateFetcher&) = delete;
    UpdateFetcher& operator=(const UpdateFetcher&) = delete;

    /// Fetches at most 64 KiB, in at most 30 seconds.
    Handle load(const Url& url, Completion<Bytes> completion);
    /// Fetches at most 1 GiB, at no less than 4 KiB a second, into a new file. A part of it may lie there after a
    /// failure. Progress is logged.
    Handle download(const Url& url, const std::filesystem::path& file, Completion<Done> completion);

private:
    QNetworkReply* get(const QUrl& url);

    MainLoop& loop;
    const std::optional<QList<QSslCertificate>> authorities;
    std::unique_ptr<QNetworkAccessManager> network;  // made at the first use
};
