#include "DesktopKit/ConsoleWindow.h"

#include "DesktopKit/ConsoleVC.h"

#include <utility>

ConsoleWindow::ConsoleWindow(Kit& kit, const std::optional<std::string>& version, std::function<Date()> clock)
    : _consoleVC(new ConsoleVC(kit, version, std::move(clock), this)) {
    setObjectName(QLatin1String(identifier));
    setWindowTitle(QStringLiteral("Console"));
    setCentralWidget(_consoleVC);
    setMinimumSize(200, 100);
    resize(640, 480);
    setAttribute(Qt::WA_DeleteOnClose, false);
}
