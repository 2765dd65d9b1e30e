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

/// Brings manifests and archives from https, http and file URLs to this machine.
///
/// Redirects are followed, at most 10, within https and http, but never from https to http. What a server answers
/// is taken whatever its status. Certificates are those of the system. Nothing is compressed on the way, kept in
/// a cache, or sent along. An answer that is shorter than it says fails; of one that comes in chunks and
/// breaks off the toolkit does not always tell, so that whoever reads a manifest or an archive must find its end.
///
/// One thread, whose Qt event loop must turn: used and destroyed there; it may be made on another. Completions come
/// with a `FetchError`; dropping what an operation returns calls it off, and is done before this dies.
class UpdateFetcher {
public:
    using Handle = std::shared_ptr<void>;

    static constexpr std::uint64_t maxManifest = std::uint64_t(64) << 10;  // bytes
    static constexpr std::uint64_t maxArchive = std::uint64_t(1) << 30;    // bytes
    static constexpr Seconds manifestTime = 30;

    /// @param loop  for the time-outs; of the same thread
    /// @param authorities  instead of the system's
    explicit UpdateFetcher(MainLoop& loop, std::optional<QList<QSslCertificate>> authorities = {});
    ~UpdateFetcher();
    UpdateFetcher(const UpdateFetcher&) = delete;
    UpdateFetcher& operator=(const UpdateFetcher&) = delete;

    /// At most 64 KiB, in at most 30 seconds.
    Handle load(const Url& url, Completion<Bytes> completion);
    /// At most 1 GiB, at no less than 4 KiB a second, to a file that is not there yet. A part of it may lie there
    /// after a failure. Progress is logged.
    Handle download(const Url& url, const std::filesystem::path& file, Completion<Done> completion);

private:
    QNetworkReply* get(const QUrl& url);

    MainLoop& loop;
    const std::optional<QList<QSslCertificate>> authorities;
    std::unique_ptr<QNetworkAccessManager> network;  // from the first use on
};
