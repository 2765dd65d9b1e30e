#include "PlatformUpdate/NetworkFetch.h"

#include "StateKit/Log.h"
#include "UpdateKit/FileUrl.h"

#include <QNetworkRequest>
#include <QUrl>

#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr qint64 readBuffer = 256 << 10;
constexpr std::size_t pieceSize = 1 << 20;

const Log fetchLog("zorvane.UpdateKit", "UpdateFetcher");

FetchError tooLong(std::uint64_t most) {
    return FetchError("the answer is longer than " + std::to_string(most) + " bytes");
}

/// Whether the error only repeats what the HTTP status says. Then the answer is there all the same.
bool isOfStatus(const QNetworkReply& reply) {
    constexpr int firstFailure = 400;
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() >= firstFailure &&
           reply.error() > QNetworkReply::UnknownProxyError;
}

std::string inMebibytes(std::uint64_t bytes) {
    const std::uint64_t tenths = bytes * 10 >> 20;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " MiB";
}

}  // namespace

// ---- from the network

std::shared_ptr<void> NetworkFetch::begin(MainLoop& loop, Get get, const QUrl& url, FetchLimits limits, FetchSink sink,
                                          Completion<Done> completion) {
    return std::make_shared<NetworkFetch>(loop, std::move(get), url, limits, std::move(sink), std::move(completion));
}

NetworkFetch::NetworkFetch(MainLoop& loop, Get get, const QUrl& url, FetchLimits limits, FetchSink sink,
                           Completion<Done> completion)
    : get(std::move(get)), limits(limits), sink(std::move(sink)), completion(std::move(completion)) {
    start(url);
    if (limits.time)
        timeout.emplace(loop, *limits.time, [this] { fail(FetchError("it took too long")); });
    else
        rate.emplace(
            loop, [this](std::uint64_t total) { logProgress(total); },
            [this] { fail(FetchError("it came too slowly")); });
}

NetworkFetch::~NetworkFetch() { drop(); }

void NetworkFetch::start(const QUrl& url) {
    reply = get(url);
    // With a limit, what is not read makes the server wait instead of piling up.
    reply->setReadBufferSize(readBuffer);
    QObject::connect(reply, &QNetworkReply::readyRead, &context, [this] { read(); });
    QObject::connect(reply, &QNetworkReply::finished, &context, [this] { finished(); });
}

void NetworkFetch::drop() {
    if (reply == nullptr) return;
    QObject::disconnect(reply, nullptr, &context, nullptr);
    reply->abort();
    reply->deleteLater();
    reply = nullptr;
}

/// Follows a redirect by hand, since the toolkit now and then takes a redirect for an empty answer.
void NetworkFetch::follow(const QUrl& target) {
    const QUrl from = reply->url();
    const QUrl next = from.resolved(target);
    const bool wasSecure = from.scheme() == QLatin1String("https");
    if (wasSecure && next.scheme() != QLatin1String("https"))
        return static_cast<void>(fail(FetchError("redirected to where nothing is secured")));
    if (++redirects > FetchLimits::maxRedirects) return static_cast<void>(fail(FetchError("too many redirects")));
    drop();
    try {
        start(next);
    } catch (const FetchError& error) {
        fail(error);
    }
}

/// @return whether the fetch goes on; if not, this object may be gone
bool NetworkFetch::read() {
    if (!completion) return false;
    // Do not read the page that comes with a redirect: it is not the answer.
    if (reply->attribute(QNetworkRequest::RedirectionTargetAttribute).isValid()) return true;
    // If the claimed length is too large, refuse before the first byte is taken.
    const auto claimed = reply->header(QNetworkRequest::ContentLengthHeader).toULongLong();
    if (claimed > limits.maxBytes) return fail(tooLong(limits.maxBytes));
    while (reply->bytesAvailable() > 0) {
        const QByteArray piece = reply->read(readBuffer);
        if (piece.isEmpty()) break;
        received += static_cast<std::uint64_t>(piece.size());
        if (received > limits.maxBytes) return fail(tooLong(limits.maxBytes));
        if (rate) rate->add(static_cast<std::uint64_t>(piece.size()));
        try {
            sink({reinterpret_cast<const std::uint8_t*>(piece.constData()), static_cast<std::size_t>(piece.size())});
        } catch (const FetchError& error) {
            return fail(error);
        }
    }
    return true;
}

void NetworkFetch::finished() {
    if (!read()) return;
    if (reply->error() != QNetworkReply::NoError && !isOfStatus(*reply))
        return static_cast<void>(fail(FetchError(reply->errorString().toStdString())));
    const QVariant target = reply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (target.isValid()) return follow(target.toUrl());
    // Compare the length, since the toolkit does not always report a link that breaks off.
    const QVariant claimed = reply->header(QNetworkRequest::ContentLengthHeader);
    if (claimed.isValid() && claimed.toULongLong() != received)
        return static_cast<void>(fail(FetchError("the answer is cut short")));
    if (rate) fetchLog.info("UpdateKit: downloaded " + inMebibytes(received));
    end(Done{});
}

bool NetworkFetch::fail(const FetchError& error) {
    end(Outcome<Done>::failure(error));
    return false;
}

/// Calls the completion, which may destroy this object.
void NetworkFetch::end(Outcome<Done> outcome) {
    if (reply != nullptr) QObject::disconnect(reply, nullptr, &context, nullptr);
    timeout.reset();
    rate.reset();
    if (const auto done = std::exchange(completion, {})) done(std::move(outcome));
}

void NetworkFetch::logProgress(std::uint64_t total) {
    const auto claimed = reply->header(QNetworkRequest::ContentLengthHeader).toULongLong();
    fetchLog.info("UpdateKit: downloading, " + inMebibytes(total) +
                  (claimed > 0 ? " of " + inMebibytes(claimed) : std::string()));
}

// ---- from a file

std::shared_ptr<void> FileFetch::begin(MainLoop& loop, const Url& url, FetchLimits limits, FetchSink sink,
                                       Completion<Done> completion) {
    const auto fetch = std::make_shared<FileFetch>(loop, url, limits, std::move(sink), std::move(completion));
    fetch->next();
    return fetch;
}

FileFetch::FileFetch(MainLoop& loop, const Url& url, FetchLimits limits, FetchSink sink, Completion<Done> completion)
    : loop(loop), limits(limits), sink(std::move(sink)), completion(std::move(completion)), buffer(pieceSize) {
    const auto path = FileUrl::path(url);
    if (!path) throw FetchError("no file of this machine");
    // Without O_NONBLOCK, a pipe without a writer would make us wait.
    file = FileDescriptor(::open(path->c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0)
        throw FetchError("the file can't be opened: " + std::string(std::strerror(errno)));
    if (!S_ISREG(status.st_mode)) throw FetchError("no file");
    if (static_cast<std::uint64_t>(status.st_size) > limits.maxBytes) throw tooLong(limits.maxBytes);
}

void FileFetch::next() {
    loop.post([weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self || !self->completion) return;
        const auto isAtEnd = Outcome<bool>::of([&] { return self->readPiece(); });
        if (isAtEnd.hasValue() && !Outcome(isAtEnd).take()) return self->next();
        const auto done = std::exchange(self->completion, {});
        if (isAtEnd.hasValue())
            done(Done{});
        else
            done(isAtEnd.error());
    });
}

/// @return whether there is no more
bool FileFetch::readPiece() {
    const ssize_t size = ::read(file.get(), buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) return false;
    if (size < 0) throw FetchError("the file can't be read: " + std::string(std::strerror(errno)));
    received += static_cast<std::uint64_t>(size);
    if (received > limits.maxBytes) throw tooLong(limits.maxBytes);
    sink(ByteView(buffer).first(static_cast<std::size_t>(size)));
    return size == 0;
}
