#include "PlatformUpdate/UpdateThread.h"

#include "PlatformCore/QtMainLoop.h"

#include <QThread>

#include <future>

class UpdateThread::Thread : public QThread {
public:
    std::promise<MainLoop*> made;

protected:
    void run() override {
        QtMainLoop loop;
        made.set_value(&loop);
        exec();
    }
};

UpdateThread::UpdateThread() : thread(std::make_unique<Thread>()) {
    thread->setObjectName(QStringLiteral("update"));
    thread->start();
    _loop = thread->made.get_future().get();
}

UpdateThread::~UpdateThread() {
    _loop->post([running = thread.get()] { running->quit(); });
    thread->wait();
}
