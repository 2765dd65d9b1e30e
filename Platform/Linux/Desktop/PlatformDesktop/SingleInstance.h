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
/// expect: Activate(a{sv}), Open(as, a{sv}), ActivateAction(s, av, a{sv}). A program that starts later
/// hands its URLs to the running one and ends. The bus gives a name to one owner at a time, so of several that
/// start together one becomes the first, and the others reach that one.
///
/// `Open` only asks the program to come forward: URLs are handed on as text, and nothing here reads them.
/// There are no actions: `ActivateAction` is answered with an error.
///
/// Limits on calls: `mostUrls` in one call, `longestUrl` for each, `mostWaiting` calls that wait for
/// `setHandlers`. A call beyond a limit is answered with the error LimitsExceeded, and dropped as a whole. A token
/// that can't be one (see `ActivationToken::checked`) counts as none.
///
/// Main thread only. Destroying this object gives the name back; calls that still wait are forgotten.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Outcome {
        first,      ///< we own the name, and get the calls from now on
        forwarded,  ///< another program runs and has accepted our request: end
        noBus,      ///< no session bus, or one that refuses: no other program can be found, go on alone
        noAnswer    ///< another program owns the name, but has not accepted our request; `error` says why
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

    /// Becomes the first, or hands `urls` to the first (without URLs, asks it to come forward). Call it once, before
    /// the handlers are set. Blocks until the bus, and the other program if there is one, have answered, but at most
    /// for `within`. URLs beyond the limits are left out. If the other program ends while we ask it, we try again to
    /// become the first.
    [[nodiscard]] Outcome claim(const QStringList& urls, const ActivationToken& token,
                                std::chrono::milliseconds within = patience);

    /// The reason for the outcome `noBus` or `noAnswer`, for a log; otherwise empty.
    const QString& error() const { return _error; }

    /// From now on calls are delivered to these handlers, one in each event of the loop. Calls that came before are
    /// delivered first, in their order. A caller gets its answer before the handler runs, so that it never waits for
    /// our user.
    void setHandlers(Handlers handlers);

    /// Call this when the program is ending. Calls that come from now on get no answer, and waiting ones are
    /// forgotten. With an answer, a program that called us by `claim` would end and leave its user without one;
    /// without, the bus reports to it when we are gone, and it becomes the first.
    void beginEnding();

    /// "zorvane.Vimble" for the default folder; for any other folder ".d" and 32 hexadecimal digits of a hash of its
    /// canonical path are added, so that one folder has one name however its path is written. The folder need not
    /// exist.
    /// @param dataDir  nothing means the default folder
    static QString busName(const std::optional<std::filesystem::path>& dataDir);

    /// "/zorvane/Vimble" for "zorvane.Vimble".
    static QString objectPath(const QString& name);

private:
    friend class ApplicationAdaptor;
    struct Call {
        std::optional<QStringList> urls;  // nothing for a call of Activate
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
