#pragma once

#include "StateKit/MainLoop.h"
#include "VimbleKit/Kit.h"

#include <QMainWindow>

class RoomVC;

/// The window "Room", of which there is one: closing it only hides it, with all that it shows.
///
/// It makes no menu bar, and neither shows nor places itself. Main thread; the session and the loop must
/// outlive it.
class RoomWindow : public QMainWindow {
    Q_OBJECT

public:
    RoomWindow(Kit& kit, MainLoop& loop, QWidget* parent = nullptr);

    /// The name under which its place is remembered.
    static constexpr const char* identifier = "RoomWindowID";
    RoomVC& roomVC() { return *_roomVC; }

private:
    RoomVC* _roomVC;
};
