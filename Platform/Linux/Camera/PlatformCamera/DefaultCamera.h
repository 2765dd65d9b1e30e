#pragma once

#include "ScanKit/FrameSource.h"

#include <QMediaDevices>
#include <QObject>

#include <functional>
#include <memory>

/// The default camera of this machine, through Qt Multimedia: about 640 x 480, 15 to 30 frames a second. If there is no
/// camera, this class waits until one is plugged in.
///
/// It opens one camera, once, and never closes it: when the multimedia libraries close a camera that was
/// unplugged, they use memory that they have freed. So end the process as soon as `isOver` is called, without
/// destroying this object. Main thread only.
class DefaultCamera : public QObject {
    Q_OBJECT

public:
    struct Handlers {
        std::function<void(SharedFrame)> didCapture;  // called on a thread of the multimedia libraries
        std::function<void(CameraTrouble)> didFail;   // after `noCamera`, frames may still come
        std::function<void()> isOver;                 // the camera that was open is unplugged or broken
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
