#include "PlatformUpdate/Reachability.h"

#include <map>
#include <mutex>
#include <utility>

struct Reachability::Listeners {
    std::mutex mutex;
    bool isReachable = false;
    int lastId = 0;
    std::map<int, std::function<void(bool)>> reports;
};

Reachability::Reachability(Internets& internets) : listeners(std::make_shared<Listeners>()) {
    listeners->isReachable = internets.status() == Internets::Status::online;
    internets.subscribe(*this, [](Reachability& self, const Internets::Status& status) {
        const std::lock_guard lock(self.listeners->mutex);
        self.listeners->isReachable = status == Internets::Status::online;
        for (const auto& [id, report] : self.listeners->reports) report(self.listeners->isReachable);
    });
}

std::shared_ptr<void> Reachability::watch(std::function<void(bool)> report) {
    const std::lock_guard lock(listeners->mutex);
    const int id = ++listeners->lastId;
    report(listeners->isReachable);
    listeners->reports.emplace(id, std::move(report));
    // The listeners outlive this object for as long as somebody holds such a handle.
    return {nullptr, [held = listeners, id](void*) {
                const std::lock_guard dropping(held->mutex);
                held->reports.erase(id);
            }};
}
