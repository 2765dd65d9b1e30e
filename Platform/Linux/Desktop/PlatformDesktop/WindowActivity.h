#pragma once

#include "StateKit/ActivityMonitor.h"

#include <QMetaObject>

/// The activity of a program with windows: it is in front while one of them has the keyboard.
///
/// `willTerminate` comes with the application's `aboutToQuit`. Make it after the `QGuiApplication`.
class WindowActivity : public ActivityMonitor {
public:
    ~WindowActivity() override;
    void observe(Handlers handlers) override;
    bool isActive() const override { return isInFront; }

private:
    QMetaObject::Connection stateConnection;
    QMetaObject::Connection endConnection;
    bool isInFront = false;
};
