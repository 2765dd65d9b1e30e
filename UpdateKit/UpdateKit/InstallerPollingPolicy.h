#pragma once

/// How long the installer waits for the application to end.
struct InstallerPollingPolicy {
    double interval = 0.1;      // between two looks at the process, in seconds
    int gracefulAttempts = 50;  // looks after the polite request; below 0 counts as 0
    int forcedAttempts = 50;    // looks after the kill; likewise
};
