#pragma once

#include "StateKit/Date.h"
#include "StateKit/SharedList.h"
#include "TranscriptKit/Day.h"
#include "TranscriptKit/SharedText.h"

#include <functional>
#include <string>
#include <variant>

/// The flat rows of a chat, oldest first. A value, whose copies share their rows.
struct Transcript {
    /// A message. Whether its emoji and time are shown depends on the rows before (RowRules), so that a
    /// row stays equal to itself when its neighbours change.
    struct Text {
        SharedText text;
        Date time;
        SharedText emoji;
        SharedText author;   // public key
        SharedText toolTip;  // likewise

        bool operator==(const Text&) const = default;
    };
    /// A note between the messages, such as of a new name.
    struct Activity {
        SharedText text;
        Date time;

        bool operator==(const Activity&) const = default;
    };
    struct Daybreak {
        Day day;

        bool operator==(const Daybreak&) const = default;
    };

    using Item = std::variant<Text, Activity, Daybreak>;

    SharedList<Item> items;

    bool operator==(const Transcript&) const = default;
};

template <>
struct std::hash<Transcript::Text>;
template <>
struct std::hash<Transcript::Activity>;
template <>
struct std::hash<Transcript::Daybreak>;
