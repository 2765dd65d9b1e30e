#include "PlatformCore/ProgramActivity.h"

#include <QCoreApplication>

#include <utility>

ProgramActivity::~ProgramActivity() { QObject::disconnect(connection); }

void ProgramActivity::observe(Handlers handlers) {
    QObject::disconnect(connection);
    connection = QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit,
                                  [willTerminate = std::move(handlers.willTerminate)] {
                                      if (willTerminate) willTerminate();
                                  });
}
