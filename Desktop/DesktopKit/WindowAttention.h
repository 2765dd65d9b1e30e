#pragma once

#include "AttentionKit/UserAttention.h"
#include "StateKit/Lifecycle.h"
#include "VimbleKit/Kit.h"

#include <functional>
#include <string>

#include <QWidget>

class RoomWindow;
class RosterWindow;

/// Asks for attention on the window that it concerns: an event does not tell whether a text went to the room
/// or to the user alone, but the session's state does.
///
/// That is the room, or the talk with the author, if its window is open, even if it is minimised; otherwise
/// the People window, through which both are found. Where that is hidden too there is no window that could
/// ask, and none does.
///
/// Main thread. What it is made with must outlive it.
class WindowAttention : public UserAttention {
public:
    /// @param alert  has the desktop mark a window as wanting to be looked at, until it is
    WindowAttention(Kit& kit, const Lifecycle& lifecycle, RosterWindow& people, RoomWindow& room,
                    std::function<void(QWidget&)> alert);

    bool isActive() const override { return lifecycle.isActive(); }
    void requestUserAttention(const Person& author, const std::string& text) override;

private:
    /// The window where the text is read, open or not; null for a talk that has none.
    QWidget* windowOf(const Person& author, const std::string& text) const;

    Kit& kit;
    const Lifecycle& lifecycle;
    RosterWindow& people;
    RoomWindow& room;
    const std::function<void(QWidget&)> alert;
};
