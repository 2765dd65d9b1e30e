#include "DesktopKit/RoomWindow.h"

#include "DesktopKit/RoomVC.h"

RoomWindow::RoomWindow(Kit& kit, MainLoop& loop, QWidget* parent)
    : QMainWindow(parent), _roomVC(new RoomVC(kit, loop, this)) {
    setWindowTitle(QStringLiteral("Room"));
    setMinimumSize(256, 192);
    resize(512, 384);
    setCentralWidget(_roomVC);
    setFocusProxy(_roomVC);
}
