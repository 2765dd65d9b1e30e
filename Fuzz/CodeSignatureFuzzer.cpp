// Reads the parts of a bundle's seal. A list has one valid spelling only, a signature fits one content only, following
// links ends, and no name can make a line of its own.
//
// The first byte chooses what the rest is: a list, a signature over `signedContent`, a bundle's links, or a name.

#include "FuzzSupport/FuzzInput.h"

#include "Base/Check.h"
#include "CodeSignature/BundleLinks.h"
#include "CodeSignature/CmsSignature.h"
#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"
#include "CodeSignature/Seal.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::string_view signedContent = "vimble-seal 1\nsignature required\ndirectory 0755 .\n";

void checkLine(std::string_view text) {
    check(isPlainText(text), "an escaped text holds what it should not");
    check(std::ranges::none_of(text, [](char c) { return c >= 0 && c < ' '; }), "a text makes a line of its own");
}

void readList(ByteView text) {
    std::optional<Seal> seal;
    try {
        seal = Seal::parse(text);
    } catch (const CodeSignatureError& error) {
        checkLine(error.what());
        return;
    }
    check(std::ranges::equal(seal->bytes(), text), "a list is read in two spellings");
    check(Seal::of(seal->entries, seal->isSigned) == *seal, "what was read can't be sealed");
    for (const SealEntry& entry : seal->entries) check(seal->find(entry.path) == &entry, "an entry can't be found");
}

std::optional<Signer> signer(std::string_view content, ByteView signature) {
    try {
        return CmsSignature::verify(bytesOf(content), signature);
    } catch (const CodeSignatureError& error) {
        checkLine(error.what());
        return std::nullopt;
    }
}

void readSignature(ByteView signature) {
    const auto found = signer(signedContent, signature);
    if (!found) return;
    check(!found->chain.empty(), "nobody has signed");
    for (const Authority& authority : found->chain) checkLine(authority.text());
    checkLine(found->teamIdentifier.value_or(""));
    check(!signer(signedContent.substr(1), signature), "one signature is over two contents");
    Bytes altered(signature.begin(), signature.end());
    altered.push_back(0);
    check(!signer(signedContent, altered), "bytes behind a signature are not seen");
}

void followLinks(FuzzInput& input) {
    std::map<std::string, std::optional<std::string>> bundle{{"", std::nullopt}};
    for (int i = 0; i < 20 && !input.isEmpty(); ++i) {
        std::string path = input.text();
        for (std::size_t end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1))
            bundle.emplace(path.substr(0, end), std::nullopt);
        bundle.insert_or_assign(std::move(path), input.text());
    }
    std::vector<SealEntry> entries;
    std::map<std::string, std::string> targets;
    for (const auto& [path, target] : bundle) {
        entries.push_back({target ? SealEntry::Kind::link : SealEntry::Kind::directory, path});
        if (target) targets.emplace(path, *target);
    }
    bool isInside = true;
    try {
        // Drop bundles with invalid names: no folder on a disk can hold these.
        entries = Seal::of(std::move(entries), false).entries;
    } catch (const CodeSignatureError&) {
        return;
    }
    try {
        BundleLinks(entries, targets).checkAll();
    } catch (const CodeSignatureError& error) {
        checkLine(error.what());
        isInside = false;
    }
    for (const auto& [path, target] : targets)
        check(!isInside || !target.starts_with('/'), "a link to anywhere is inside");
}

void escape(ByteView bytes) {
    const std::string_view text = textOf(bytes);
    const std::string escaped = escapedText(text);
    checkLine(escaped);
    const bool isSame = isPlainText(text) && text.find('\\') == std::string_view::npos;
    check((escaped == text) == isSame, "plain text is escaped, or other text is not");
    check(isSame || escaped.size() > text.size(), "what is escaped gets longer");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    switch (input.below(4)) {
        case 0: readList(input.rest()); break;
        case 1: readSignature(input.rest()); break;
        case 2: followLinks(input); break;
        case 3: escape(input.rest()); break;
    }
    return 0;
}
