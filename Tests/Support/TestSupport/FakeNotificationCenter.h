#pragma once

#include "AttentionKit/NotificationCenter.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A desktop's notification service, whose delays run in the loop's time. For tests that link AttentionKit.
class FakeNotificationCenter : public NotificationCenter {
public:
    explicit FakeNotificationCenter(MainLoop& loop) : loop(loop) {}

    void requestAuthorization() override { ++authorizationRequests; }
    void add(UserNotification notification, Seconds delay) override {
        const std::string identifier = notification.identifier;
        added.push_back(notification);
        pending[identifier] = std::make_unique<Timer>(loop, delay, [this, identifier, notification] {
            delivered.push_back(notification);
            const auto dying = pending.extract(identifier);
        });
    }
    void removeAllPending() override { pending.clear(); }
    void removeAllDelivered() override { delivered.clear(); }

    std::size_t pendingCount() const { return pending.size(); }

    int authorizationRequests = 0;
    std::vector<UserNotification> added;      // all that were ever added, in order
    std::vector<UserNotification> delivered;  // those that are on the screen

private:
    MainLoop& loop;
    std::map<std::string, std::unique_ptr<Timer>> pending;
};
