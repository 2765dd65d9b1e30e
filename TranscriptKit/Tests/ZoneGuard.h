#pragma once

#include <QByteArray>

#include <ctime>

/// Gives the process a time zone for the length of a scope.
class ZoneGuard {
public:
    explicit ZoneGuard(const char* zone) : before(qgetenv("TZ")), hadOne(qEnvironmentVariableIsSet("TZ")) {
        qputenv("TZ", zone);
        tzset();
    }
    ~ZoneGuard() {
        if (hadOne)
            qputenv("TZ", before);
        else
            qunsetenv("TZ");
        tzset();
    }
    ZoneGuard(const ZoneGuard&) = delete;
    ZoneGuard& operator=(const ZoneGuard&) = delete;

private:
    QByteArray before;
    bool hadOne;
};
