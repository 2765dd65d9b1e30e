#include "StateKit/Internets.h"

#include "Base/Check.h"

#include <utility>

namespace {

std::function<std::unique_ptr<Internets>()>& sharedMaker() {
    static std::function<std::unique_ptr<Internets>()> maker;
    return maker;
}

}  // namespace

Internets::Internets(MainLoop& loop, std::unique_ptr<PathMonitor> monitor)
    : signal(loop), monitor(std::move(monitor)) {}

Internets::~Internets() { stop(); }

void Internets::configureShared(std::function<std::unique_ptr<Internets>()> make) { sharedMaker() = std::move(make); }

Internets& Internets::shared() {
    static const std::unique_ptr<Internets> instance = [] {
        check(bool(sharedMaker()), "Internets.shared was used before it was configured");
        auto made = sharedMaker()();
        made->start();
        return made;
    }();
    return *instance;
}

void Internets::start() {
    monitor->start([weak = Weak<Internets>(this)](bool isSatisfied) {
        if (Internets* internets = weak.get()) internets->pathUpdated(isSatisfied);
    });
}

void Internets::stop() { monitor->cancel(); }

void Internets::pathUpdated(bool isSatisfied) {
    _status = isSatisfied ? Status::online : Status::offline;
    signal.send(_status);
}
