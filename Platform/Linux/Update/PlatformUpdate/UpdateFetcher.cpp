#include "PlatformUpdate/UpdateFetcher.h"

#include "PlatformUpdate/FetchedFile.h"
#include "PlatformUpdate/NetworkFetch.h"
#include "UpdateKit/FileUrl.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QUrl>

#include <utility>

namespace {

bool isWeb(const QUrl& url) {
    return (url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http")) && !url.host().isEmpty();
}

}  // namespace

UpdateFetcher::UpdateFetcher(MainLoop& loop, std::optional<QList<QSslCertificate>> authorities)
    : loop(loop), authorities(std::move(authorities)) {}

UpdateFetcher::~UpdateFetcher() = default;

/// @throws FetchError  the URL can't be fetched
QNetworkReply* UpdateFetcher::get(const QUrl& target) {
    if (!target.isValid() || !isWeb(target)) throw FetchError("unsupported URL");
    if (!network) {
        network = std::make_unique<QNetworkAccessManager>();
        network->setCookieJar(nullptr);
    }
    QNetworkRequest request(target);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    // Ask for no compression, since the toolkit would unpack the answer, to any size.
    request.setRawHeader("Accept-Encoding", "identity");
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Vimble"));
    if (authorities) {
        QSslConfiguration trust = QSslConfiguration::defaultConfiguration();
        trust.setCaCertificates(*authorities);
        request.setSslConfiguration(trust);
    }
    return network->get(request);
}

UpdateFetcher::Handle UpdateFetcher::load(const Url& url, Completion<Bytes> completion) {
    const auto collected = std::make_shared<Bytes>();
    const auto sink = [collected](ByteView bytes) { collected->insert(collected->end(), bytes.begin(), bytes.end()); };
    const auto finished = [collected, completion = std::move(completion)](Outcome<Done> outcome) {
        if (outcome.hasValue())
            completion(std::move(*collected));
        else
            completion(outcome.error());
    };
    const auto getter = [this](const QUrl& each) { return get(each); };
    const QUrl target(QString::fromStdString(url.text()), QUrl::StrictMode);
    try {
        if (FileUrl::isFile(url)) return FileFetch::begin(loop, url, {maxManifest, manifestTime}, sink, finished);
        return NetworkFetch::begin(loop, getter, target, {maxManifest, manifestTime}, sink, finished);
    } catch (const FetchError& error) {
        finished(Outcome<Done>::failure(error));
        return nullptr;
    }
}

UpdateFetcher::Handle UpdateFetcher::download(const Url& url, const std::filesystem::path& path,
                                              Completion<Done> completion) {
    const auto getter = [this](const QUrl& each) { return get(each); };
    const QUrl target(QString::fromStdString(url.text()), QUrl::StrictMode);
    try {
        const auto file = std::make_shared<FetchedFile>(path);
        const auto sink = [file](ByteView bytes) { file->write(bytes); };
        const auto finished = [file, completion](Outcome<Done> outcome) {
            completion(outcome.hasValue() ? Outcome<Done>::of([&] { file->close(); }) : outcome);
        };
        if (FileUrl::isFile(url)) return FileFetch::begin(loop, url, {maxArchive, {}}, sink, finished);
        return NetworkFetch::begin(loop, getter, target, {maxArchive, {}}, sink, finished);
    } catch (const FetchError& error) {
        completion(Outcome<Done>::failure(error));
        return nullptr;
    }
}
