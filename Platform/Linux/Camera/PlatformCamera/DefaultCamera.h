#pragma once

#include "ScanKit/FrameSource.h"

#include <QMediaDevices>
#include <QObject>

#include <functional>
#include <memory>

/// The default camera of this machine, through the toolkit's multimedia module: about 640 x 480, 15 to 30 frames a
/// second. Without one, it waits for one to be plugged in.
///
/// It opens one camera, once, and never closes it: when the multimedia libraries take down a camera that was
/// unplugged, they use memory that they have given back. So the process is to be ended as soon as `isOver` is
/// called, without destroying this. Main thread only.
class DefaultCamera : public QObject {
    Q_OBJECT

public:
    struct Handlers {
        std::function<void(SharedFrame)> didCapture;  // on a thread of the multimedia libraries
        std::function<void(CameraTrouble)> didFail;   // after `noCamera` it goes on
        std::function<void()> isOver;                 // the camera that was open is gone or broken
    };

    explicit DefaultCamera(Handlers handlers);
    ~DefaultCamera() override;

private:
    void look();
    void open(const QCameraDevice& device);
    void judgeError();

    struct Capture;
    Handlers handlers;
    QMediaDevices devices;
    std::unique_ptr<Capture> capture;
};
