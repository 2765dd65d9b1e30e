#pragma once

#include "StateKit/Date.h"
#include "StateKit/Record.h"
#include "StateKit/SharedList.h"

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>

/// One text that somebody wrote.
///
/// JSON: {"author": text, "text": text, "timestamp": number}.
struct Message {
    std::string author;  // a public key: 64 lower-case hexadecimal characters
    std::string text;
    Date timestamp;  // the local clock at sending or arrival; packs carry no time

    static constexpr auto fields = std::tuple{Field{"author", &Message::author}, Field{"text", &Message::text},
                                              Field{"timestamp", &Message::timestamp}};

    bool operator==(const Message&) const = default;
};

template <>
struct std::hash<Message> {
    std::size_t operator()(const Message& message) const { return hashOfFields(message); }
};

/// The room, or a direct conversation.
///
/// JSON: {"messages": array of Message, "readCount": integer}.
struct Chat {
    SharedList<Message> messages;  // oldest first, in the order of arrival here; never trimmed
    std::int64_t readCount = 0;    // the number of messages when the chat was last marked read

    static constexpr auto fields = std::tuple{Field{"messages", &Chat::messages}, Field{"readCount", &Chat::readCount}};

    bool operator==(const Chat&) const = default;
};
