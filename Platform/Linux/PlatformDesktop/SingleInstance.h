#pragma once

#include "PlatformDesktop/WindowActivation.h"

#include <QDBusConnection>
#include <QObject>
#include <QStringList>

#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>

/// One running program for each user and data folder, found over the session bus.
///
/// The program that runs owns a name on the bus and answers `org.freedesktop.Application` there, as desktops
/// expect of it: Activate(a{sv}), Open(as, a{sv}), ActivateAction(s, av, a{sv}). A program that starts later
/// hands on what it was started with and ends. The bus gives a name to one owner at a time, so of several that
/// start together one becomes the first, and the others reach it.
///
/// `Open` is a request to come forward, nothing more: URLs are handed on as text, and nothing here reads them.
/// There are no actions: `ActivateAction` is answered with an error.
///
/// Limits on what arrives, each answered with the error LimitsExceeded, and nothing of the call is kept:
/// `mostUrls` in one call, `longestUrl` for each, `mostWaiting` calls that wait for `setHandlers`. A token that
/// can't be one (see `ActivationToken::checked`) counts as none.
///
/// Main thread only. Destroying it gives the name back; calls that still wait are forgotten.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Outcome {
        first,      ///< we own the name, and are called from now on
        forwarded,  ///< another program runs and has taken over what we were to do: end
        noBus,      ///< no session bus, or one that refuses: nobody can be found, go on alone
        noAnswer    ///< another program owns the name and has not taken it over; `error` says why
    };

    struct Handlers {
        std::function<void(const ActivationToken&)> activate;
        std::function<void(const QStringList& urls, const ActivationToken&)> open;
    };

    static constexpr int mostUrls = 64;
    static constexpr int longestUrl = 8192;  // in UTF-16 units
    static constexpr std::size_t mostWaiting = 64;
    static constexpr std::chrono::milliseconds patience{10000};

    /// @param name  from `busName`
    /// @param bus  usually the session bus
    explicit SingleInstance(QString name, QDBusConnection bus = QDBusConnection::sessionBus());
    ~SingleInstance() override;

    /// Becomes the first, or hands on `urls` (with none: asks to come forward). Call it once, before the handlers
    /// are set. Blocks: at once if nobody is there, else until the other has answered, or for `within` altogether.
    /// URLs beyond the limits are left out. A program that ends while it is asked is no longer there.
    Outcome claim(const QStringList& urls, const ActivationToken& token, std::chrono::milliseconds within = patience);

    /// Why the outcome is `noBus` or `noAnswer`, for a log; otherwise empty.
    const QString& error() const { return _error; }

    /// From now on calls reach these, each from the event loop and never inside another; those that came before
    /// are delivered first, in their order. A caller has its answer as soon as the call has come in, so that it
    /// never waits for our user.
    void setHandlers(Handlers handlers);

    /// The program is ending: calls that come from now on are left without an answer, and those that wait are
    /// forgotten. The bus tells whoever asked when we are gone, and one that asked by `claim` becomes the first then,
    /// where an answer would have sent it away to nobody.
    void beginEnding();

    /// "zorvane.Vimble" for the default folder, and for any other that with ".d" and 32 hexadecimal digits of a
    /// hash of its canonical path: one name for one folder, however it is written. The folder need not exist.
    /// @param dataDir  nothing: the default folder
    static QString busName(const std::optional<std::filesystem::path>& dataDir);

    /// "/zorvane/Vimble" for "zorvane.Vimble".
    static QString objectPath(const QString& name);

private:
    friend class ApplicationAdaptor;
    struct Call {
        std::optional<QStringList> urls;  // nothing: Activate
        ActivationToken token;
    };

    void leave();
    bool keep(Call call);
    void deliver();

    QString name;
    QDBusConnection bus;
    bool isFirst = false;
    bool isEnding = false;
    QString _error;
    std::optional<Handlers> handlers;
    std::deque<Call> waiting;
};
