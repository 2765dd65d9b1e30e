#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

/// Runs Qt's loop until a condition holds.
/// @return false if the condition does not hold in time. The limit is long, since only failing tests wait that long
template <class Condition>
bool turnUntil(Condition condition, int atMostMs = 20000) {
    QElapsedTimer clock;
    clock.start();
    QTimer waker;  // so that waiting for events returns although there are none, and the clock is looked at
    waker.start(50);
    while (!condition()) {
        if (clock.elapsed() > atMostMs) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}
