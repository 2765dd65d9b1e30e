// Compares the reader with another library's document tree on texts that were damaged at random: a text
// that one of them accepts the other must accept too, with the same value.

#include "StateKit/Json.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <simdjson.h>

namespace {

struct Leaf {
    std::string name;
    std::optional<double> number;

    static constexpr auto fields = std::tuple{Field{"name", &Leaf::name}, Field{"number", &Leaf::number}};
    bool operator==(const Leaf&) const = default;
};

struct Tree {
    std::int64_t count = 0;
    bool isOn = false;
    std::optional<std::string> note;
    std::vector<Leaf> leaves;
    SharedMap<std::string, double> map;
    std::optional<Leaf> leaf;

    static constexpr auto fields =
        std::tuple{Field{"count", &Tree::count},   Field{"isOn", &Tree::isOn}, Field{"note", &Tree::note},
                   Field{"leaves", &Tree::leaves}, Field{"map", &Tree::map},   Field{"leaf", &Tree::leaf}};
    bool operator==(const Tree&) const = default;
};

using Node = rapidjson::Value;

/// Reads a value by hand from the other library's document tree. False if it is of another type.
bool take(const Node& node, std::int64_t& out) {
    if (!node.IsInt64()) return false;
    out = node.GetInt64();
    return true;
}
bool take(const Node& node, bool& out) {
    if (!node.IsBool()) return false;
    out = node.GetBool();
    return true;
}
bool take(const Node& node, double& out) {
    if (!node.IsNumber()) return false;
    out = node.GetDouble();
    return true;
}
bool take(const Node& node, std::string& out) {
    if (!node.IsString()) return false;
    out.assign(node.GetString(), node.GetStringLength());
    return true;
}
bool take(const Node& node, Leaf& out);
template <class Type>
bool take(const Node& node, std::optional<Type>& out) {
    out.reset();
    return node.IsNull() || take(node, out.emplace());
}
template <class Type>
bool take(const Node& node, std::vector<Type>& out) {
    out.clear();
    if (!node.IsArray()) return false;
    for (const Node& element : node.GetArray())
        if (!take(element, out.emplace_back())) return false;
    return true;
}
bool take(const Node& node, SharedMap<std::string, double>& out) {
    out = {};
    if (!node.IsObject()) return false;
    for (const auto& member : node.GetObject()) {
        double number = 0;
        if (!take(member.value, number)) return false;
        out.set(std::string(member.name.GetString(), member.name.GetStringLength()), number);
    }
    return true;
}
template <class Type>
bool takeField(const Node& node, const char* name, Type& out) {
    bool isThere = false;
    for (const auto& member : node.GetObject()) {
        if (std::string_view(member.name.GetString(), member.name.GetStringLength()) != name) continue;
        if (!take(member.value, out)) return false;
        isThere = true;
    }
    return isThere || isOptional<Type>;
}
bool take(const Node& node, Leaf& out) {
    out = {};
    return node.IsObject() && takeField(node, "name", out.name) && takeField(node, "number", out.number);
}
bool take(const Node& node, Tree& out) {
    return node.IsObject() && takeField(node, "count", out.count) && takeField(node, "isOn", out.isOn) &&
           takeField(node, "note", out.note) && takeField(node, "leaves", out.leaves) &&
           takeField(node, "map", out.map) && takeField(node, "leaf", out.leaf);
}

/// Whether our reader has to accept this too: the other library lets half a pair of surrogates through,
/// which is no UTF-8, and some numbers that are too large.
bool isSound(const Node& node) {
    const auto isText = [](const Node& text) {
        return simdjson::validate_utf8(text.GetString(), text.GetStringLength());
    };
    if (node.IsString()) return isText(node);
    if (node.IsNumber()) return std::isfinite(node.GetDouble());
    if (node.IsArray()) return std::all_of(node.Begin(), node.End(), isSound);
    if (!node.IsObject()) return true;
    return std::all_of(node.MemberBegin(), node.MemberEnd(),
                       [&](const auto& member) { return isText(member.name) && isSound(member.value); });
}

std::optional<Tree> otherReading(const std::string& text) {
    // The other library would read only up to a NUL.
    if (text.find('\0') != std::string::npos) return std::nullopt;
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
    Tree tree;
    if (document.HasParseError() || !isSound(document) || !take(document, tree)) return std::nullopt;
    return tree;
}

/// Whether the values are the same except for the last digits of their doubles, which the other library
/// does not round exactly. Our exactness has a test of its own.
bool isClose(double a, double b) { return a == b || std::abs(a - b) <= 1e-14 * std::abs(a); }
bool isClose(const Leaf& a, const Leaf& b) {
    return a.name == b.name && a.number.has_value() == b.number.has_value() &&
           (!a.number || isClose(*a.number, *b.number));
}
bool isClose(const Tree& a, const Tree& b) {
    return a.count == b.count && a.isOn == b.isOn && a.note == b.note && a.leaf.has_value() == b.leaf.has_value() &&
           (!a.leaf || isClose(*a.leaf, *b.leaf)) &&
           std::equal(a.leaves.begin(), a.leaves.end(), b.leaves.begin(), b.leaves.end(),
                      [](const Leaf& one, const Leaf& other) { return isClose(one, other); }) &&
           a.map.size() == b.map.size() && std::all_of(a.map.begin(), a.map.end(), [&](const auto& entry) {
               const double* other = b.map.find(entry.first);
               return other && isClose(entry.second, *other);
           });
}

/// Makes texts and damages them, all from one seed.
class Texts {
public:
    explicit Texts(std::uint64_t seed) : random(seed) {}

    std::string next() {
        std::string text = tree();
        for (std::size_t damages = below(3); damages > 0; --damages) damage(text);
        return text;
    }

private:
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random() % limit); }

    template <std::size_t count>
    std::string oneOf(const char* const (&choices)[count]) {
        return choices[below(count)];
    }

    std::string space() { return oneOf({"", "", "", " ", "\n", "\t \r"}); }
    std::string number() {
        if (below(60) == 0) return oneOf({"1e400", "01", "-", "1.", ".5", "+1", "NaN", "1 2"});
        return oneOf({"0", "-0", "1", "-7", "1.5", "1e5", "-2.25E-3", "123456789012", "0.1", "9223372036854775807",
                      "1e308", "5e-324", "9223372036854775808", "3.0"});
    }
    std::string text() {
        if (below(60) == 0) return oneOf({"\"\\ud83d\"", "\"\\ude00\"", "\"\xC3\"", "\"\t\"", "\"\\x\"", "'a'"});
        return '"' +
               oneOf({"", "a", "name", "é漢😀", "\\n\\\"\\\\", "\\u0041", "\\ud83d\\ude00",
                      "a long text of more than sixteen characters", "[{,:}]", "\\u0000", "\\/", "\xC3\xA9"}) +
               '"';
    }
    std::string list(std::string (Texts::*element)()) {
        std::string all = "[" + space();
        for (std::size_t count = below(4), i = 0; i < count; ++i)
            all += (i ? "," : "") + space() + (this->*element)() + space();
        return all + "]";
    }
    std::string anything() {
        switch (below(8)) {
            case 0: return number();
            case 1: return text();
            case 2: return "true";
            case 3: return "null";
            case 4: return list(&Texts::number);
            case 5: return leaf();
            case 6: return "{}";
            default: return "false";
        }
    }
    std::string object(const std::vector<std::pair<std::string, std::string>>& members) {
        std::string all = "{" + space();
        bool isFirst = true;
        for (const auto& [key, value] : members) {
            if (!isFirst) all += ",";
            isFirst = false;
            all += space() + key + space() + ":" + space() + value + space();
        }
        return all + "}";
    }
    std::string leaf() {
        std::vector<std::pair<std::string, std::string>> members = {{"\"name\"", text()}};
        if (below(2)) members.emplace_back("\"number\"", below(3) ? number() : "null");
        if (below(4) == 0) members.emplace_back(text(), anything());
        return object(members);
    }
    std::string tree() {
        std::vector<std::pair<std::string, std::string>> members = {
            {"\"count\"", below(8) ? "12" : number()},
            {below(8) ? "\"isOn\"" : "\"\\u0069sOn\"", below(2) ? "true" : "false"},
            {"\"leaves\"", list(&Texts::leaf)},
            {"\"map\"", object({{text(), number()}, {text(), number()}})}};
        if (below(2)) members.emplace_back("\"note\"", below(3) ? text() : "null");
        if (below(2)) members.emplace_back("\"leaf\"", below(3) ? leaf() : "null");
        if (below(3) == 0) members.emplace_back(text(), anything());
        if (below(6) == 0) members.push_back(members[below(members.size())]);
        std::shuffle(members.begin(), members.end(), random);
        return space() + object(members) + space();
    }
    void damage(std::string& text) {
        static constexpr std::string_view pieces =
            "{}[]:,\"\\ \n0123456789-+.eEtruefalsn\x01\x1F\x7F\x80\xC3\xA9\xFF/u";
        if (text.empty()) return;
        const std::size_t at = below(text.size());
        switch (below(6)) {
            case 0: text.erase(at, 1 + below(3)); return;
            case 1: text.insert(at, 1, pieces[below(pieces.size())]); return;
            case 2: text[at] = pieces[below(pieces.size())]; return;
            case 3: text.resize(at); return;
            case 4: text.insert(below(text.size()), text.substr(at, 1 + below(8))); return;
            default: std::swap(text[at], text[below(text.size())]); return;
        }
    }

    std::mt19937_64 random;
};

TEST(JsonDifferentialTest, DamagedTextsAreTakenAndRefusedLikeByAnotherLibrary) {
    const char* given = std::getenv("VIMBLE_TEST_SEED");
    const std::uint64_t seed = given ? std::strtoull(given, nullptr, 10) : 20010101;
    const char* givenCount = std::getenv("VIMBLE_TEST_COUNT");
    const int count = givenCount ? std::atoi(givenCount) : 20'000;
    std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
    Texts texts(seed);
    int taken = 0, refused = 0;
    for (int i = 0; i < count; ++i) {
        const std::string text = texts.next();
        std::optional<Tree> ours;
        std::string reason;
        try {
            ours = Json::decode<Tree>(bytesOf(text));
        } catch (const JsonError& error) {
            reason = error.what();
        }
        const std::optional<Tree> other = otherReading(text);
        ASSERT_EQ(ours.has_value(), other.has_value()) << "text " << i << ": " << text << "\n" << reason;
        ASSERT_TRUE(!ours || isClose(*ours, *other)) << "text " << i << ": " << text;
        ++(ours ? taken : refused);
        if (!ours) continue;
        const JsonText again = Json::encode(*ours);
        ASSERT_TRUE(Json::decode<Tree>(again.bytes()) == *ours) << "text " << i << ": " << text << "\n" << again.view();
    }
    // The comparison is only worth something while neither kind of text is rare.
    EXPECT_GT(taken, count / 10);
    EXPECT_GT(refused, count / 10);
}

}  // namespace
