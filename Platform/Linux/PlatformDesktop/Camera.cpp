#include "PlatformDesktop/Camera.h"

#include "PlatformDesktop/CameraOffer.h"
#include "PlatformDesktop/GreyFrames.h"

#include <QCamera>
#include <QCameraDevice>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QVideoFrame>
#include <QVideoSink>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace {

bool isPacked(QVideoFrameFormat::PixelFormat format) { return format == QVideoFrameFormat::Format_Jpeg; }

QCameraFormat bestFormat(const QCameraDevice& device) {
    const QList<QCameraFormat> formats = device.videoFormats();
    std::vector<CameraOffer> offers;
    for (const QCameraFormat& format : formats)
        offers.push_back({format.resolution(), format.maxFrameRate(), isPacked(format.pixelFormat()),
                          format.pixelFormat() != QVideoFrameFormat::Format_Invalid});
    const auto best = bestOffer(offers);
    return best ? formats.at(static_cast<qsizetype>(*best)) : QCameraFormat();
}

/// The newest frame on its way from the multimedia library's threads to the main thread.
class NewestFrame {
public:
    /// @return whether there was none waiting, so that somebody has to be called to fetch this one
    bool put(SharedFrame frame) {
        const std::lock_guard lock(mutex);
        newest = std::move(frame);
        return !std::exchange(isWaiting, true);
    }

    SharedFrame take() {
        const std::lock_guard lock(mutex);
        isWaiting = false;
        return std::exchange(newest, {});
    }

private:
    std::mutex mutex;
    SharedFrame newest;
    bool isWaiting = false;
};

/// One camera that is open.
struct Capture {
    Capture(const QCameraDevice& device) : camera(device) {
        const QCameraFormat format = bestFormat(device);
        if (!format.isNull()) camera.setCameraFormat(format);
        session.setCamera(&camera);
        session.setVideoSink(&sink);
    }
    ~Capture() {
        sink.disconnect();
        camera.disconnect();
        camera.stop();
        // Not while both hang on the session: its destructor reaches for them.
        session.setVideoSink(nullptr);
        session.setCamera(nullptr);
    }

    QCamera camera;
    QVideoSink sink;
    QMediaCaptureSession session;
    std::shared_ptr<NewestFrame> newest = std::make_shared<NewestFrame>();
};

}  // namespace

/// From a start to a stop. What others post to it, it does not get once it is gone.
class Camera::Session : public QObject {
public:
    explicit Session(Handlers handlers) : handlers(std::move(handlers)) {
        // Asked once before the connection, and the connection queued: otherwise the first use deadlocks.
        QMediaDevices::videoInputs();
        connect(&devices, &QMediaDevices::videoInputsChanged, this, &Session::lookAgain, Qt::QueuedConnection);
        later(&Session::open);
    }

private:
    void later(void (Session::*step)()) { QMetaObject::invokeMethod(this, step, Qt::QueuedConnection); }

    void open() {
        capture.reset();
        const QCameraDevice device = QMediaDevices::defaultVideoInput();
        if (device.isNull()) return tell(CameraTrouble::noCamera);
        capture = std::make_unique<Capture>(device);
        connect(&capture->camera, &QCamera::errorOccurred, this, &Session::fail, Qt::QueuedConnection);
        connect(
            &capture->sink, &QVideoSink::videoFrameChanged, this,
            [this, newest = capture->newest](const QVideoFrame& frame) {
                // Copied here: the camera's own memory may be gone once this call is over.
                SharedFrame grey = GreyFrames::of(frame);
                if (grey && newest->put(std::move(grey)))
                    QMetaObject::invokeMethod(
                        this, [this, newest] { deliver(*newest); }, Qt::QueuedConnection);
            },
            Qt::DirectConnection);
        capture->camera.start();
    }

    void deliver(NewestFrame& newest) {
        SharedFrame grey = newest.take();
        // A frame of a camera that has been closed meanwhile.
        if (!capture || capture->newest.get() != &newest) return;
        const auto tellFrame = handlers.didCapture;  // may end this session
        tellFrame(std::move(grey));
    }

    void fail() {
        if (!capture || capture->camera.error() == QCamera::NoError) return;
        capture.reset();
        tell(CameraTrouble::notOpened);
    }

    void lookAgain() {
        if (capture && QMediaDevices::videoInputs().contains(capture->camera.cameraDevice())) return;
        const bool wasOpen = capture != nullptr;
        if (wasOpen || !QMediaDevices::videoInputs().isEmpty()) open();
    }

    void tell(CameraTrouble trouble) {
        const auto tellTrouble = handlers.didFail;  // may end this session
        tellTrouble(trouble);
    }

    Handlers handlers;
    QMediaDevices devices;
    std::unique_ptr<Capture> capture;
};

Camera::Camera() = default;

Camera::~Camera() = default;

void Camera::start(Handlers handlers) {
    session.reset();
    session = std::make_unique<Session>(std::move(handlers));
}

void Camera::stop() { session.reset(); }
