#include "ReleaseServer.h"

#include "ChatWorld.h"
#include "SigningSupport/ProgramRun.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace {

void expectSuccess(const std::vector<std::string>& command) {
    const ProgramRun run = ProgramRun::of(command);
    EXPECT_EQ(run.status, 0) << command.front() << "\n" << run.errors;
}

}  // namespace

ReleaseServer::Certificate ReleaseServer::Certificate::make(const fs::path& folder) {
    const fs::path own = folder / "authorities";
    fs::create_directories(own);
    Certificate made{own / "test.pem", folder / "test.key"};
    expectSuccess({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                   "-nodes", "-days", "2", "-subj", "/CN=test", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                   made.key, "-out", made.certificate});
    // Makes the links by whose names the TLS libraries find an authority in a folder.
    expectSuccess({"/usr/bin/openssl", "rehash", own});
    return made;
}

bool ReleaseServer::Certificate::beTrusted() const {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount(certificate.parent_path().c_str(), "/etc/ssl/certs", nullptr, MS_BIND, nullptr) == 0;
}

ReleaseServer::ReleaseServer(fs::path folder, const Certificate* certificate)
    : folder(std::move(folder)), isSecure(certificate != nullptr) {
    Process::Start start;
    start.command = {"/usr/bin/python3", RELEASE_SERVER, this->folder};
    if (certificate != nullptr) start.command.insert(start.command.end(), {certificate->certificate, certificate->key});
    start.environment = {{"LC_ALL", "C.UTF-8"}, {"PATH", "/usr/bin:/bin"}};
    program = std::make_unique<Process>(start);
    const std::string beginning = "port ";
    port = program->lineThatBegins(beginning).value_or(beginning + "none").substr(beginning.size());
}

std::string ReleaseServer::url(const std::string& name) const {
    return std::string(isSecure ? "https" : "http") + "://127.0.0.1:" + port + "/" + name;
}

ReleaseServer::~ReleaseServer() {
    if (held >= 0) ::close(held);
}

void ReleaseServer::hold(const std::string& name) {
    pipe = folder / (name + ".hold");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
}

bool ReleaseServer::isHeld() {
    return eventually([&] {
        // The pipe can't be opened for writing before the server waits at its other end.
        if (held < 0) held = ::open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return held >= 0;
    });
}

void ReleaseServer::letGo() {
    fs::remove(pipe);
    // With the pipe closed, the server reads the end of it and goes on.
    ::close(std::exchange(held, -1));
}
