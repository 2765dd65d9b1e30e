#include "PlatformCore/ApplicationFolder.h"
#include "PlatformCore/LinuxHost.h"
#include "PlatformCore/NetlinkPathMonitor.h"
#include "PlatformCore/QtMainLoop.h"
#include "PlatformCore/QtMessages.h"
#include "PlatformCore/QtTransport.h"
#include "PlatformCore/SealedFileStore.h"
#include "PlatformCore/SecretServiceStore.h"
#include "PlatformCore/SignalWatch.h"
#include "StateKit/Internets.h"
#include "StateKit/Log.h"
#include "TerminalKit/TerminalOptions.h"
#include "TerminalKit/TerminalSession.h"
#include "TerminalShell/PassphrasePrompt.h"
#include "TerminalShell/StandardStreams.h"
#include "TerminalShell/TerminalLog.h"
#include "Text/Text.h"
#include "VimbleKit/Arguments.h"
#include "VimbleKit/Endpoint.h"
#include "VimbleKit/Keys.h"
#include "VimbleKit/Kit.h"
#include "VimbleKit/ServerText.h"
#include "VimbleKit/State.h"

#include <QCoreApplication>

#include <csignal>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

constexpr char programName[] = "vimble-terminal";
constexpr int usageStatus = 2;

/// Says why the program can't start, in one line for the user.
class StartError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::unique_ptr<SecretStore> makeStore(const TerminalOptions& options, PassphrasePrompt& prompt) {
    if (!options.secretFile) return std::make_unique<SecretServiceStore>();
    return std::make_unique<SealedFileStore>(*options.secretFile, [&prompt](SealedFileStore::Reason reason) {
        switch (reason) {
            case SealedFileStore::Reason::newFile: return std::optional(prompt.ask(PassphrasePrompt::Purpose::choose));
            case SealedFileStore::Reason::existingFile: break;
        }
        return std::optional(prompt.ask(PassphrasePrompt::Purpose::open));
    });
}

std::optional<Endpoint> chosenServer(const TerminalOptions& options) {
    if (!options.server) return std::nullopt;
    try {
        return serverFrom(*options.server);
    } catch (const ServerTextError& error) {
        throw StartError(error.what());
    }
}

StartError noServer() { return StartError("no server has been used yet; say which with --server"); }

/// Runs the chat until it ends. @return the exit status
int chat(const TerminalOptions& options, const std::optional<Endpoint>& server, SecretStore& store, QtMainLoop& loop,
         const ApplicationFolder& folder) {
    const LinuxHost host;
    auto ownMonitor = std::make_unique<NetlinkPathMonitor>(loop);
    NetlinkPathMonitor& monitor = *ownMonitor;
    Internets internets(loop, std::move(ownMonitor));
    QtTransport transport(loop);
    Kit kit({loop, internets, store, transport, host, folder.path()});
    if (server) kit.setEndpoint(*server);
    if (!kit.state().endpoint) throw noServer();
    monitor.setEndpointUrl(kit.state().endpoint->url());
    internets.start();

    StandardOutput output(loop);
    TerminalSession session(
        kit, loop, output,
        [&](Seconds atMost, std::function<void(bool)> done) { transport.drain(atMost, std::move(done)); },
        {.form = options.isJson ? OutputForm::json : OutputForm::plain,
         .version = host.bundleInfo("CFBundleShortVersionString"),
         .isInteractive = isatty(STDIN_FILENO) == 1});
    StandardInput input(
        {.read = [&](std::string_view bytes) { session.read(bytes); }, .ended = [&] { session.inputEnded(); }});
    output.setHandlers({.closed = [&] { session.outputClosed(); },
                        .setReading = [&](bool isReading) { input.setReading(isReading); },
                        .ended = [](int status) { QCoreApplication::exit(status); }});
    transport.onTrouble([&](const std::string& text) { session.trouble(text); });
    const SignalWatch signalWatch([&] { session.interrupted(); });
    session.start();
    const int status = QCoreApplication::exec();
    // Destroying the objects above can report trouble; do not pass it to the session, which is over.
    transport.onTrouble({});
    // Texts that arrived after the session's own save are proved to the relay, so they exist only here: deliver and
    // save them.
    QCoreApplication::sendPostedEvents();
    try {
        kit.save();
    } catch (const std::exception& error) {
        complain("the state could not be saved: " + Text::escaped(error.what()));
        return 1;
    }
    return status;
}

int run(const TerminalOptions& options, PassphrasePrompt& prompt, QtMainLoop& loop) {
    const auto server = chosenServer(options);
    const auto store = makeStore(options, prompt);

    // Check everything that can be refused before anything is written.
    auto keys = Keys::load(*store);
    if (options.wantsPublicKey && keys) {
        StandardOutput output(loop);
        output.line(keys->publicKeyText());
        return output.isGood() ? 0 : 1;
    }
    const ApplicationFolder folder(options.dataDir, programName, loop.now());
    // Without a server the program can't chat: refuse before an identity is made.
    if (!keys && !options.wantsPublicKey && !server && !State::load(folder.path(), {}).endpoint) throw noServer();
    // Make keys only while `folder` holds its lock, so that two programs that start at once don't make two identities.
    if (!keys) keys = Keys::loadOrGenerate(*store);
    if (options.wantsPublicKey) {
        StandardOutput output(loop);
        output.line(keys->publicKeyText());
        return output.isGood() ? 0 : 1;
    }
    keys.reset();
    return chat(options, server, *store, loop, folder);
}

}  // namespace

int main(int argc, char** argv) {
    claimStandardStreams();
    std::signal(SIGPIPE, SIG_IGN);
    PassphrasePrompt prompt;

    TerminalOptions options;
    try {
        options = TerminalOptions::parse({argv + (argc > 0 ? 1 : 0), argv + argc});
    } catch (const ArgumentsError& error) {
        complain(error.what());
        return usageStatus;
    }

    QtMessages::toLog();
    const auto log = std::make_shared<TerminalLog>(options.isDebug);
    Log::setSink(log);
    // Escape these lines: they may hold what a server sent.
    if (options.isDebug) DebugLines::setPrint([](std::string_view line) { complain(Text::escaped(line)); });

    // Pass no arguments: Qt would interpret some that are ours.
    int count = argc > 0 ? 1 : 0;
    QCoreApplication application(count, argv);
    QtMainLoop loop;
    StandardOutput output(loop);
    if (options.wantsHelp || options.wantsVersion) {
        std::string text(TerminalOptions::help());
        text.pop_back();
        output.line(options.wantsHelp
                        ? text
                        : "vimble-terminal " + LinuxHost().bundleInfo("CFBundleShortVersionString").value_or("0.0"));
        return output.isGood() ? 0 : 1;
    }
    try {
        return run(options, prompt, loop);
    } catch (const KeysError& error) {
        std::string text = error.what();
        if (error.status == SecretStatuses::notAvailable && !options.secretFile)
            text += "; --secret-file FILE keeps your key in a file instead";
        complain(Text::escaped(text));
        return 1;
    } catch (const std::exception& error) {
        complain(Text::escaped(error.what()));
        return 1;
    }
}
