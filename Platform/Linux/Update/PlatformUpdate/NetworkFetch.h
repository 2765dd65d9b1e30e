#pragma once

#include "Base/Bytes.h"
#include "Base/FileDescriptor.h"
#include "PlatformUpdate/TransferRate.h"
#include "StateKit/MainLoop.h"
#include "Text/Url.h"
#include "UpdateKit/Outcome.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

#include <QNetworkReply>
#include <QObject>
#include <QUrl>

/// Why something was not fetched, in one line for the log.
class FetchError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What a fetch may cost.
struct FetchLimits {
    static constexpr int maxRedirects = 10;

    std::uint64_t maxBytes = 0;
    std::optional<Seconds> time;  // for the whole fetch; without one it must not be too slow (`TransferRate`)
};

/// Takes the bytes that come, in order. May throw a `FetchError`, which ends the fetch.
using FetchSink = std::function<void(ByteView)>;

/// The fetch of one answer from the network. `begin` returns a handle; dropping it ends the fetch, and the completion
/// is dropped uncalled.
class NetworkFetch {
public:
    /// Begins a request, without following redirects. @throws FetchError  the URL can't be fetched
    using Get = std::function<QNetworkReply*(const QUrl&)>;

    /// @param get  what it holds must outlive the handle
    /// @throws FetchError  what `get` throws
    static std::shared_ptr<void> begin(MainLoop& loop, Get get, const QUrl& url, FetchLimits limits, FetchSink sink,
                                       Completion<Done> completion);

    NetworkFetch(MainLoop& loop, Get get, const QUrl& url, FetchLimits limits, FetchSink sink,
                 Completion<Done> completion);
    ~NetworkFetch();
    NetworkFetch(const NetworkFetch&) = delete;
    NetworkFetch& operator=(const NetworkFetch&) = delete;

private:
    void start(const QUrl& url);
    void drop();
    void follow(const QUrl& target);
    bool read();
    void finished();
    bool fail(const FetchError& error);
    void end(Outcome<Done> outcome);
    void logProgress(std::uint64_t total);

    const Get get;
    const FetchLimits limits;
    const FetchSink sink;
    Completion<Done> completion;
    QNetworkReply* reply = nullptr;
    QObject context;  // of the connections to the reply, which end before the members above are destroyed
    int redirects = 0;
    std::uint64_t received = 0;
    std::optional<Timer> timeout;
    std::optional<TransferRate> rate;
};

/// The fetch of one file of this machine, which is read in pieces, so that other work of the loop gets its turn.
class FileFetch : public std::enable_shared_from_this<FileFetch> {
public:
    /// @throws FetchError  there is no such file, or it can't be read
    static std::shared_ptr<void> begin(MainLoop& loop, const Url& url, FetchLimits limits, FetchSink sink,
                                       Completion<Done> completion);

    FileFetch(MainLoop& loop, const Url& url, FetchLimits limits, FetchSink sink, Completion<Done> completion);

private:
    void next();
    bool readPiece();

    MainLoop& loop;
    const FetchLimits limits;
    const FetchSink sink;
    Completion<Done> completion;
    FileDescriptor file;
    Bytes buffer;
    std::uint64_t received = 0;
};
