#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

/// An immutable text that is shared, not copied: a transcript of 100,000 messages takes the texts
/// themselves from the state.
///
/// A value: compared and hashed by content, though comparing two that share is one pointer comparison.
class SharedText {
public:
    SharedText() = default;
    /// A text of its own.
    SharedText(std::string text) : text(std::make_shared<const std::string>(std::move(text))) {}
    SharedText(const char* text) : SharedText(std::string(text)) {}
    /// A part of something that the pointer keeps alive.
    explicit SharedText(std::shared_ptr<const std::string> text) : text(std::move(text)) {}

    const std::string& string() const { return text ? *text : nothing(); }
    operator std::string_view() const { return string(); }
    bool empty() const { return string().empty(); }

    bool operator==(const SharedText& other) const { return text == other.text || string() == other.string(); }

private:
    static const std::string& nothing() {
        static const std::string text;
        return text;
    }

    std::shared_ptr<const std::string> text;
};

template <>
struct std::hash<SharedText> {
    std::size_t operator()(const SharedText& text) const { return std::hash<std::string>()(text.string()); }
};
