#pragma once

#include <string>

struct Person;

/// Whether the application is in front, and how to ask the user to look at it.
class UserAttention {
public:
    virtual ~UserAttention() = default;

    /// Whether one of the application's windows has the keyboard.
    virtual bool isActive() const = 0;
    /// Asks once for the user's attention, in the desktop's way, for the window that shows what that person has
    /// just said.
    virtual void requestUserAttention(const Person& author, const std::string& text) = 0;
};
