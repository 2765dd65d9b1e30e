#include "PlatformCamera/DefaultCamera.h"

#include "PlatformCamera/CameraOffer.h"
#include "PlatformCamera/VideoFrames.h"

#include <QCamera>
#include <QCameraDevice>
#include <QMediaCaptureSession>
#include <QVideoFrame>
#include <QVideoSink>

#include <atomic>
#include <optional>
#include <utility>
#include <vector>

namespace {

/// The best format. Nothing if the camera has only formats that we can't read; a null format, which leaves the choice
/// to the camera, if it names none.
std::optional<QCameraFormat> bestFormat(const QCameraDevice& device) {
    const QList<QCameraFormat> formats = device.videoFormats();
    if (formats.isEmpty()) return QCameraFormat();
    std::vector<CameraOffer> offers;
    for (const QCameraFormat& format : formats)
        offers.push_back({format.resolution(), format.maxFrameRate(),
                          format.pixelFormat() == QVideoFrameFormat::Format_Jpeg,
                          VideoFrames::isReadable(format.pixelFormat())});
    const auto best = bestOffer(offers);
    if (!best) return std::nullopt;
    return formats.at(static_cast<qsizetype>(*best));
}

}  // namespace

struct DefaultCamera::Capture {
    explicit Capture(const QCameraDevice& device) : camera(device) {}

    QCamera camera;
    QVideoSink sink;
    QMediaCaptureSession session;
    std::atomic<bool> hasFrames = false;
};

DefaultCamera::DefaultCamera(Handlers handlers) : handlers(std::move(handlers)) {
    // Ask for the inputs once before connecting, and make the connection queued: otherwise the first use deadlocks.
    QMediaDevices::videoInputs();
    connect(&devices, &QMediaDevices::videoInputsChanged, this, &DefaultCamera::look, Qt::QueuedConnection);
    const QCameraDevice device = QMediaDevices::defaultVideoInput();
    if (device.isNull())
        this->handlers.didFail(CameraTrouble::noCamera);
    else
        open(device);
}

DefaultCamera::~DefaultCamera() = default;

void DefaultCamera::look() {
    if (!capture) {
        const QCameraDevice device = QMediaDevices::defaultVideoInput();
        if (!device.isNull()) open(device);
    } else if (!QMediaDevices::videoInputs().contains(capture->camera.cameraDevice())) {
        handlers.isOver();
    }
}

void DefaultCamera::open(const QCameraDevice& device) {
    capture = std::make_unique<Capture>(device);
    const auto format = bestFormat(device);
    if (!format) return handlers.didFail(CameraTrouble::notOpened);
    if (!format->isNull()) capture->camera.setCameraFormat(*format);
    capture->session.setCamera(&capture->camera);
    capture->session.setVideoSink(&capture->sink);
    connect(&capture->camera, &QCamera::errorOccurred, this, &DefaultCamera::judgeError, Qt::QueuedConnection);
    connect(
        &capture->sink, &QVideoSink::videoFrameChanged, this,
        [this](const QVideoFrame& frame) {
            // Copy the frame here: the camera may take its memory back after this call.
            SharedFrame grey = VideoFrames::grey(frame);
            if (!grey) return;
            capture->hasFrames = true;
            handlers.didCapture(std::move(grey));
        },
        Qt::DirectConnection);
    capture->camera.start();
}

void DefaultCamera::judgeError() {
    if (capture->camera.error() == QCamera::NoError) return;
    if (capture->hasFrames)
        handlers.isOver();
    else
        handlers.didFail(CameraTrouble::notOpened);
}
