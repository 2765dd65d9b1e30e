#pragma once

#include "StateKit/MainLoop.h"

#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

/// A main loop whose clock is a variable: nothing happens until the test lets time pass.
///
/// Timers fire in the order of their due times; timers that are due together in the order of their starting.
/// The thread that made the loop is its main thread.
class TestLoop : public MainLoop {
public:
    explicit TestLoop(Date start = {800000000}) : clock(start), mainThread(std::this_thread::get_id()) {}
    ~TestLoop() override {
        // Timers and work may hold the last reference to what cancels a timer of this loop.
        auto dyingTimers = std::exchange(timers, {});
        auto dyingWork = takeWork();
    }

    bool isMainThread() const override { return std::this_thread::get_id() == mainThread; }

    void post(std::function<void()> work) override {
        const std::lock_guard lock(mutex);
        posted.push_back(std::move(work));
    }

    TimerId startTimer(Seconds delay, std::function<void()> action) override {
        const TimerId id = nextId++;
        timers.emplace(std::pair{now() + std::max(delay, 0.0), id}, std::move(action));
        return id;
    }

    void cancelTimer(TimerId timer) override {
        for (auto it = timers.begin(); it != timers.end(); ++it) {
            if (it->first.second != timer) continue;
            const auto dying = std::move(it->second);  // dies after the entry is gone
            timers.erase(it);
            return;
        }
    }

    Date now() const override { return clock; }

    /// Runs posted work, and the work that it posts, without letting time pass.
    void run() {
        for (auto work = takeWork(); !work.empty(); work = takeWork())
            for (auto& action : work) action();
    }

    /// Lets time pass, and runs each timer at its due time.
    void advance(Seconds interval) {
        const Date end = clock + interval;
        run();
        while (!timers.empty() && timers.begin()->first.first <= end) {
            fireNext();
            run();
        }
        clock = end;
    }

    /// Lets time pass up to the next timer, and runs it. @return false if there is none
    bool step() {
        run();
        if (timers.empty()) return false;
        fireNext();
        run();
        return true;
    }

    bool hasTimers() const { return !timers.empty(); }
    /// Seconds until the next timer is due. Only while one is pending.
    Seconds untilNextTimer() const { return timers.begin()->first.first - clock; }

    /// Sets the clock, as a user may set the machine's: pending timers fire after the same time as before.
    void setClock(Date date) {
        const Seconds shift = date - clock;
        std::map<std::pair<Date, TimerId>, std::function<void()>> moved;
        for (auto& [due, action] : timers) moved.emplace(std::pair{due.first + shift, due.second}, std::move(action));
        timers = std::move(moved);
        clock = date;
    }

private:
    void fireNext() {
        auto node = timers.extract(timers.begin());
        clock = std::max(clock, node.key().first);
        node.mapped()();
    }

    std::deque<std::function<void()>> takeWork() {
        const std::lock_guard lock(mutex);
        return std::exchange(posted, {});
    }

    Date clock;
    std::thread::id mainThread;
    TimerId nextId = 1;
    std::map<std::pair<Date, TimerId>, std::function<void()>> timers;
    std::mutex mutex;
    std::deque<std::function<void()>> posted;
};
