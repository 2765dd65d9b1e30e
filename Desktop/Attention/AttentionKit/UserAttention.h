#pragma once

#include <string>

struct Person;

/// The application's place on the desktop: is it in front, and how to ask for it to be looked at.
class UserAttention {
public:
    virtual ~UserAttention() = default;

    /// Whether one of the application's windows has the keyboard.
    virtual bool isActive() const = 0;
    /// Asks once for the user's attention, as the desktop does it, on the window where what that person has
    /// just said is to be read.
    virtual void requestUserAttention(const Person& author, const std::string& text) = 0;
};
