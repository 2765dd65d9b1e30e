#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

/// Turns Qt's loop until a condition holds.
/// @return false if it does not within some seconds: long, since only failing tests wait that long
template <class Condition>
bool turnUntil(Condition condition, int atMostMs = 20000) {
    QElapsedTimer clock;
    clock.start();
    QTimer waker;  // so that a loop in which nothing happens comes to an end
    waker.start(50);
    while (!condition()) {
        if (clock.elapsed() > atMostMs) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}
