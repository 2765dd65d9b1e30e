#include "CodeSignature/Seal.h"

#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <unordered_set>
#include <utility>

namespace {

constexpr std::string_view heading = "vimble-seal 1\n";
constexpr std::string_view signedLine = "signature required\n";
constexpr std::string_view adhocLine = "signature none\n";

bool isBelow(std::string_view path, std::string_view folder) {
    return path == folder || (path.starts_with(folder) && path[folder.size()] == '/');
}

std::string folded(std::string_view path) {
    std::string result(path);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return result;
}

/// What is wrong with a path; nothing if it may be in a list.
std::optional<std::string_view> wrongWith(std::string_view path) {
    if (path.empty()) return std::nullopt;
    if (path.size() > Seal::maximumPathBytes) return "its path is longer than 1024 bytes";
    if (!isPlainText(path)) return "its name holds control characters or is not UTF-8";
    if (isBelow(folded(path), folded(Seal::folder))) return "it lies in the folder of the seal";
    std::size_t depth = 0;
    for (std::string_view rest = path;; ++depth) {
        const std::size_t end = rest.find('/');
        const std::string_view name = rest.substr(0, end);
        if (name.empty() || name == "." || name == "..") return "its path is no path inside the bundle";
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    if (depth >= Seal::maximumDepth) return "it lies too deep in the bundle";
    return std::nullopt;
}

std::string_view parentOf(std::string_view path) {
    const std::size_t end = path.rfind('/');
    return end == std::string_view::npos ? std::string_view() : path.substr(0, end);
}

/// Checks the rules for every list, whether it was parsed or made here.
/// @throws CodeSignatureError  with the given code
void validate(const Seal& seal, CodeSignatureErrorCode code) {
    const auto& entries = seal.entries;
    if (entries.size() > Seal::maximumEntries)
        throw CodeSignatureError(code, "", "it holds more than 100000 files and folders");
    if (entries.empty() || !entries.front().path.empty() || entries.front().kind != SealEntry::Kind::directory)
        throw CodeSignatureError(code, "", "the list does not begin with it");
    std::unordered_set<std::string> names;
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const SealEntry& entry = entries[i];
        if (const auto wrong = wrongWith(entry.path)) throw CodeSignatureError(code, entry.path, *wrong);
        if (i == 0) continue;
        if (entries[i - 1].path >= entry.path) throw CodeSignatureError(code, entry.path, "it is out of order");
        const SealEntry* parent = seal.find(parentOf(entry.path));
        if (!parent || parent->kind != SealEntry::Kind::directory)
            throw CodeSignatureError(code, entry.path, "the folder that it lies in is missing");
        if (!names.insert(folded(entry.path)).second)
            throw CodeSignatureError(code, entry.path, "another name differs from it only in case");
        // The sum can't overflow unseen: it is checked at each entry, and so is the size by itself.
        total += entry.size;
        if (entry.size > Seal::maximumFileBytes || total > Seal::maximumFileBytes)
            throw CodeSignatureError(code, entry.path, "with it the bundle is larger than 4 GiB");
    }
}

/// Reads a list from its beginning. Throws at anything that does not fit.
class Reader {
public:
    explicit Reader(std::string_view text) : rest(text) {}

    bool isAtEnd() const { return rest.empty(); }

    bool take(std::string_view text) {
        if (!rest.starts_with(text)) return false;
        rest.remove_prefix(text.size());
        return true;
    }
    void expect(std::string_view text) {
        if (!take(text)) fail();
    }

    /// A decimal number without leading zeros.
    std::uint64_t decimal() {
        const std::string_view text = word();
        std::uint64_t value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || end != text.data() + text.size() || (text.size() > 1 && text[0] == '0')) fail();
        return value;
    }
    unsigned mode() {
        const std::string_view text = word();
        unsigned value = 0;
        for (const char c : text) {
            if (c < '0' || c > '7') fail();
            value = value * 8 + static_cast<unsigned>(c - '0');
            if (value > 0777) fail();
        }
        if (text.size() != 4) fail();
        return value;
    }
    Sha256::Digest digest() {
        const std::string_view text = word();
        Sha256::Digest result;
        if (text.size() != 2 * result.size()) fail();
        for (std::size_t i = 0; i < result.size(); ++i)
            result[i] = static_cast<std::uint8_t>(nibble(text[2 * i]) << 4 | nibble(text[2 * i + 1]));
        return result;
    }
    /// The rest of the line.
    std::string path() {
        const std::string_view text = until('\n');
        // The bundle itself is written as a point, so that no line ends in a blank.
        if (text.empty()) fail();
        return text == "." ? std::string() : std::string(text);
    }

private:
    [[noreturn]] static void fail() {
        throw CodeSignatureError(CodeSignatureErrorCode::badSeal, "the list of the seal can't be read");
    }
    static unsigned nibble(char c) {
        if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
        if (c < 'a' || c > 'f') fail();
        return static_cast<unsigned>(c - 'a' + 10);
    }
    std::string_view word() { return until(' '); }
    std::string_view until(char end) {
        const std::size_t at = rest.find(end);
        if (at == std::string_view::npos) fail();
        const std::string_view found = rest.substr(0, at);
        rest.remove_prefix(at + 1);
        return found;
    }

    std::string_view rest;
};

std::string octal(unsigned mode) {
    std::string text(4, '0');
    for (std::size_t i = text.size(); i-- > 0; mode >>= 3) text[i] = static_cast<char>('0' + (mode & 7));
    return text;
}

}  // namespace

Seal Seal::of(std::vector<SealEntry> entries, bool isSigned) {
    std::ranges::sort(entries, {}, &SealEntry::path);
    Seal seal{isSigned, std::move(entries)};
    validate(seal, CodeSignatureErrorCode::unsealable);
    return seal;
}

Seal Seal::parse(ByteView bytes) {
    if (bytes.size() > maximumBytes)
        throw CodeSignatureError(CodeSignatureErrorCode::badSeal, "the list of the seal is larger than 32 MiB");
    Reader reader(textOf(bytes));
    Seal seal;
    reader.expect(heading);
    seal.isSigned = reader.take(signedLine);
    if (!seal.isSigned) reader.expect(adhocLine);
    while (!reader.isAtEnd()) {
        // Stop here instead of in `validate`: an entry takes more memory than the line that it comes from.
        if (seal.entries.size() > maximumEntries) break;
        SealEntry entry;
        if (reader.take("directory ")) {
            entry.kind = SealEntry::Kind::directory;
            entry.mode = reader.mode();
        } else if (reader.take("file ")) {
            entry.kind = SealEntry::Kind::file;
            entry.mode = reader.mode();
            entry.size = reader.decimal();
            entry.digest = reader.digest();
        } else {
            reader.expect("link ");
            entry.kind = SealEntry::Kind::link;
            entry.digest = reader.digest();
        }
        entry.path = reader.path();
        seal.entries.push_back(std::move(entry));
    }
    validate(seal, CodeSignatureErrorCode::badSeal);
    return seal;
}

Bytes Seal::bytes() const {
    std::string text(heading);
    text += isSigned ? signedLine : adhocLine;
    for (const SealEntry& entry : entries) {
        switch (entry.kind) {
            case SealEntry::Kind::directory: text += "directory " + octal(entry.mode); break;
            case SealEntry::Kind::file:
                text +=
                    "file " + octal(entry.mode) + ' ' + std::to_string(entry.size) + ' ' + Sha256::hex(entry.digest);
                break;
            case SealEntry::Kind::link: text += "link " + Sha256::hex(entry.digest); break;
        }
        text += ' ';
        text += entry.path.empty() ? "." : entry.path;
        text += '\n';
    }
    const ByteView view = bytesOf(text);
    return Bytes(view.begin(), view.end());
}

const SealEntry* Seal::find(std::string_view path) const {
    const auto at = std::ranges::lower_bound(entries, path, {},
                                             [](const SealEntry& entry) -> std::string_view { return entry.path; });
    return at != entries.end() && at->path == path ? &*at : nullptr;
}
