#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

/// An immutable text that is shared, not copied, so that a transcript of 100,000 messages can refer to the
/// texts that are in the state.
///
/// A value: compared and hashed by content, but two that share one text are compared by pointer.
class SharedText {
public:
    SharedText() = default;
    /// Makes a text of its own.
    SharedText(std::string text) : text(std::make_shared<const std::string>(std::move(text))) {}
    SharedText(const char* text) : SharedText(std::string(text)) {}
    /// Shares a text; the pointer may be one into a larger object that it keeps alive.
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
