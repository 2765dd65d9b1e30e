#pragma once

#include "AttentionKit/UserAttention.h"
#include "StateKit/Lifecycle.h"
#include "VimbleKit/Kit.h"

#include <functional>
#include <string>

#include <QWidget>

class ChatterWindows;
class RoomWindow;
class RosterWindow;

/// Asks for the user's attention on the window that a text concerns. The event does not tell whether the text
/// went to the room or to the user alone, so this object looks into the session's state.
///
/// The window is the room, or the talk with the author, if it is open, even if it is minimised; otherwise it
/// is the People window, from which both can be opened. If that is hidden too, no window asks.
///
/// Main thread. The constructor's arguments must outlive this object.
class WindowAttention : public UserAttention {
public:
    /// @param alert  makes the desktop mark a window as asking for attention, until the user looks at it
    WindowAttention(Kit& kit, const Lifecycle& lifecycle, RosterWindow& people, RoomWindow& room,
                    const ChatterWindows& talks, std::function<void(QWidget&)> alert);

    bool isActive() const override { return lifecycle.isActive(); }
    void requestUserAttention(const Person& author, const std::string& text) override;

private:
    /// The window in which the text can be read, open or not; null for a talk that has none.
    QWidget* windowOf(const Person& author, const std::string& text) const;

    Kit& kit;
    const Lifecycle& lifecycle;
    RosterWindow& people;
    RoomWindow& room;
    const ChatterWindows& talks;
    const std::function<void(QWidget&)> alert;
};
