#include "PlatformCore/SleepWatch.h"

#include <utility>

SleepWatch::SleepWatch(QDBusConnection bus, std::function<void()> woke) : woke(std::move(woke)) {
    bus.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"), this,
                SLOT(prepareForSleep(bool)));
}

void SleepWatch::prepareForSleep(bool isGoingToSleep) {
    if (!isGoingToSleep && woke) woke();
}
