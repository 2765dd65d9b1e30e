#pragma once

#include "StateKit/ActivityMonitor.h"

#include <QMetaObject>

/// The activity of a program without windows: it never goes to the foreground or the background, it only ends.
///
/// `willTerminate` comes with the application's `aboutToQuit`. Make it after the `QCoreApplication`.
class ProgramActivity : public ActivityMonitor {
public:
    ~ProgramActivity() override;
    void observe(Handlers handlers) override;
    bool isActive() const override { return false; }

private:
    QMetaObject::Connection connection;
};
