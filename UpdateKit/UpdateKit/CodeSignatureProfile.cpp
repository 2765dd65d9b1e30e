#include "UpdateKit/CodeSignatureProfile.h"

namespace {

/// What stands behind the first "=", or before it if nothing stands behind.
std::string_view lastPiece(std::string_view line) {
    const std::size_t sign = line.find('=');
    return sign + 1 < line.size() ? line.substr(sign + 1) : line.substr(0, sign);
}

std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (end != 0) lines.push_back(text.substr(0, end));
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return lines;
}

}  // namespace

CodeSignatureProfile CodeSignatureProfile::parse(std::string_view output) {
    CodeSignatureProfile profile;
    bool hasTeamLine = false;
    for (const std::string_view line : linesOf(output)) {
        if (line == "Signature=adhoc") profile.kind = Kind::adhoc;
        if (line.starts_with("Authority=")) profile.authorityChain.emplace_back(lastPiece(line));
        if (line.starts_with("TeamIdentifier=") && !hasTeamLine) {
            hasTeamLine = true;
            if (lastPiece(line) != "not set") profile.teamIdentifier = lastPiece(line);
        }
    }
    return profile;
}

bool CodeSignatureProfile::matches(const CodeSignatureProfile& other) const {
    if (kind != other.kind) return false;
    if (kind == Kind::adhoc) return true;
    const bool isOneTeam = teamIdentifier && !teamIdentifier->empty() && teamIdentifier == other.teamIdentifier;
    return authorityChain == other.authorityChain && (isOneTeam || !authorityChain.empty());
}
