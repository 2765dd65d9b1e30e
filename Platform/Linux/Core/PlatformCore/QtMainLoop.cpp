#include "PlatformCore/QtMainLoop.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QTimerEvent>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

namespace {

using Steady = std::chrono::steady_clock;

/// The longest time for which a Qt timer is started, in ms: it holds 31 bits. Longer delays take several.
constexpr double longestStretch = 1 << 30;

/// The longest delay, in seconds: 100 years. With more, the sum of clock and delay would overflow.
constexpr Seconds longestDelay = 3.2e9;

}  // namespace

/// Takes Qt's events: one for each piece of posted work, so that a nested event loop goes on with the
/// queue where the outer one stopped, and one for each stretch of a timer.
class QtMainLoop::Receiver : public QObject {
public:
    ~Receiver() override {
        // Empty the members before their contents are destroyed: a destructor may post to this loop or cancel
        // one of its timers.
        for (const auto& [qtId, timer] : timerOfQtId) killTimer(qtId);
        timerOfQtId.clear();
        const auto dyingTimers = std::exchange(pending, {});
        std::unique_lock lock(mutex);
        isDying = true;
        const auto dyingWork = std::exchange(queue, {});
        lock.unlock();
    }

    void post(std::function<void()> work) {
        const std::lock_guard lock(mutex);
        if (isDying) return;
        queue.push_back(std::move(work));
        // Post the event under the lock, so that there are as many events as pieces of work when several
        // threads post.
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }

    TimerId start(Seconds delay, std::function<void()> action) {
        const Seconds wait = delay > 0 ? std::min(delay, longestDelay) : 0;  // not a number: at once
        const TimerId timer = nextId++;
        Pending entry{Steady::now() + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(wait)),
                      0, std::move(action)};
        arm(timer, entry);
        pending.emplace(timer, std::move(entry));
        return timer;
    }

    void cancel(TimerId timer) {
        auto node = pending.extract(timer);  // the action dies after the entry is gone
        if (node.empty()) return;
        killTimer(node.mapped().qtId);
        timerOfQtId.erase(node.mapped().qtId);
    }

    const std::thread::id thread = std::this_thread::get_id();

protected:
    bool event(QEvent* event) override {
        if (event->type() != QEvent::User) return QObject::event(event);
        std::unique_lock lock(mutex);
        if (queue.empty()) return true;
        const auto work = std::move(queue.front());
        queue.pop_front();
        const bool hasMore = !queue.empty();
        lock.unlock();
        // The work may run a nested event loop, and Qt's dispatcher on GLib would let that loop sleep although
        // events are left that the outer loop has begun to deliver.
        if (hasMore) QAbstractEventDispatcher::instance()->wakeUp();
        work();
        return true;
    }

    void timerEvent(QTimerEvent* event) override {
        const auto found = timerOfQtId.find(event->timerId());
        if (found == timerOfQtId.end()) return;
        const TimerId timer = found->second;
        killTimer(event->timerId());
        timerOfQtId.erase(found);
        Pending& entry = pending.at(timer);
        if (Steady::now() < entry.due) {
            arm(timer, entry);
            return;
        }
        const auto node = pending.extract(timer);
        node.mapped().action();
    }

private:
    struct Pending {
        Steady::time_point due;
        int qtId;
        std::function<void()> action;
    };

    void arm(TimerId timer, Pending& entry) {
        const double rest = std::chrono::duration<double, std::milli>(entry.due - Steady::now()).count();
        const double stretch = std::clamp(std::ceil(rest), 0.0, longestStretch);
        entry.qtId = startTimer(static_cast<int>(stretch), Qt::PreciseTimer);
        timerOfQtId.emplace(entry.qtId, timer);
    }

    std::mutex mutex;  // guards the queue
    std::deque<std::function<void()>> queue;
    bool isDying = false;
    TimerId nextId = 1;
    std::unordered_map<TimerId, Pending> pending;
    std::unordered_map<int, TimerId> timerOfQtId;
};

QtMainLoop::QtMainLoop() : receiver(std::make_unique<Receiver>()) {}

QtMainLoop::~QtMainLoop() {
    // Keep the pointer set while the receiver is destroyed: what it drops may still call this loop.
    delete receiver.get();
    static_cast<void>(receiver.release());
}

bool QtMainLoop::isMainThread() const { return std::this_thread::get_id() == receiver->thread; }

void QtMainLoop::post(std::function<void()> work) { receiver->post(std::move(work)); }

MainLoop::TimerId QtMainLoop::startTimer(Seconds delay, std::function<void()> action) {
    return receiver->start(delay, std::move(action));
}

void QtMainLoop::cancelTimer(TimerId timer) { receiver->cancel(timer); }

Date QtMainLoop::now() const {
    return Date::fromUnix(std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
}
