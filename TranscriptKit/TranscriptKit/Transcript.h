#pragma once

#include "StateKit/Date.h"
#include "StateKit/SharedList.h"
#include "TranscriptKit/Day.h"
#include "TranscriptKit/SharedText.h"

#include <functional>
#include <string>
#include <variant>

/// The flat rows of a chat, oldest first. A value; its copies share their rows.
struct Transcript {
    /// A message. Whether its emoji and time are shown depends on the rows before and is not part of this value
    /// (see RowRules), so that a row stays equal to itself when its neighbours change.
    struct Text {
        SharedText text;
        Date time;
        SharedText emoji;
        SharedText author;   // public key
        SharedText toolTip;  // public key too

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

/// `std::hash<Transcript::Item>`, the hash of a variant, needs these.
template <>
struct std::hash<Transcript::Text> {
    std::size_t operator()(const Transcript::Text& text) const;
};
template <>
struct std::hash<Transcript::Activity> {
    std::size_t operator()(const Transcript::Activity& activity) const;
};
template <>
struct std::hash<Transcript::Daybreak> {
    std::size_t operator()(const Transcript::Daybreak& daybreak) const;
};
