#include "ScanKit/QRScanner.h"

#include "ScanKit/QRExtractor.h"
#include "TweetNacl/Nacl.h"

#include <utility>

/// The result for a frame. Its payload is wiped when the last copy of the shared pointer is gone.
struct QRScanner::Answer {
    Answer(std::uint64_t run, SharedFrame frame, std::optional<std::string> payload)
        : run(run), frame(std::move(frame)), payload(std::move(payload)) {}
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;
    ~Answer() {
        if (payload) Nacl::wipe(*payload);
    }

    std::uint64_t run;
    SharedFrame frame;
    std::optional<std::string> payload;
};

QRScanner::QRScanner(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera)
    : loop(loop), worker(std::move(worker)), camera(std::move(camera)) {}

QRScanner::~QRScanner() { camera->stop(); }

void QRScanner::setHandlers(Handlers newHandlers) { handlers = std::move(newHandlers); }

void QRScanner::start() {
    ++run;
    isLooking = false;
    waiting = nullptr;
    startCamera();
    show(Status::starting, nullptr);
}

void QRScanner::stop() {
    if (_status != Status::stopped) end(Status::stopped, nullptr);
}

void QRScanner::freeze(SharedFrame picture) { end(Status::frozen, std::move(picture)); }

void QRScanner::startCamera() {
    watchFor(silence, Status::silent);
    camera->start(
        {[this](SharedFrame frame) { take(std::move(frame)); }, [this](CameraTrouble trouble) { fail(trouble); }});
}

void QRScanner::take(SharedFrame frame) {
    watchFor(silence, Status::silent);
    if (isLooking)
        waiting = frame;
    else
        look(frame);
    show(Status::live, std::move(frame));
}

void QRScanner::fail(CameraTrouble trouble) {
    waiting = nullptr;
    switch (trouble) {
        case CameraTrouble::noCamera:
            // Set no timer: the source itself waits for another camera.
            timer.reset();
            show(Status::noCamera, nullptr);
            return;
        case CameraTrouble::notOpened:
            timer.emplace(loop, pause, [this] { startCamera(); });
            show(Status::notOpened, nullptr);
            return;
    }
}

void QRScanner::watchFor(Seconds delay, Status atEnd) {
    timer.emplace(loop, delay, [this, atEnd] {
        camera->stop();
        waiting = nullptr;
        timer.emplace(loop, pause, [this] { startCamera(); });
        show(atEnd, nullptr);
    });
}

void QRScanner::look(SharedFrame frame) {
    isLooking = true;
    worker->run([this, &mainLoop = loop, life = std::weak_ptr(life), run = run, frame = std::move(frame)] {
        auto answer = std::make_shared<Answer>(run, frame, QRExtractor::payload(*frame, QRExtractor::Effort::live));
        mainLoop.post([this, life, answer = std::move(answer)] {
            if (!life.expired()) judge(*answer);
        });
    });
}

void QRScanner::judge(const Answer& answer) {
    if (answer.run != run) return;
    isLooking = false;
    if (answer.payload && handlers.accept) {
        const std::weak_ptr alive = life;
        const bool isGood = handlers.accept(*answer.payload);
        if (alive.expired() || answer.run != run) return;
        if (isGood) return end(Status::frozen, answer.frame);
    }
    if (waiting) look(std::exchange(waiting, nullptr));
}

void QRScanner::end(Status status, SharedFrame picture) {
    ++run;
    isLooking = false;
    waiting = nullptr;
    timer.reset();
    camera->stop();
    show(status, std::move(picture));
}

void QRScanner::show(Status status, SharedFrame picture) {
    if (_status == status && _picture == picture) return;
    _status = status;
    _picture = std::move(picture);
    if (handlers.didChange) handlers.didChange();
}
