// Reads the file of sealed secrets: any file, any items under a valid seal, and any sequence of operations, whose
// outcome is compared with a plain list.

#include "FuzzSupport/FuzzInput.h"

#include "Base/Check.h"
#include "PlatformCore/SealedFileStore.h"
#include "PlatformCore/SecretItems.h"
#include "TestSupport/TemporaryFolder.h"

#include <algorithm>
#include <fstream>

namespace {

// The lowest cost there is, to be quick: the strength of the seal is not tested here.
constexpr Nacl::PassphraseCost cheap{1, 8192};
constexpr std::size_t headBytes = 44;
constexpr std::size_t largestField = 64 << 10;

Passphrase passphrase() { return Passphrase(std::string("word")); }

class File {
public:
    File() : path(folder.path / "secrets") {
        const Bytes head = headOf(cheap);
        key = Nacl::keyFromPassphrase(passphrase(), Nacl::Salt{}, cheap);
        front = head;
        append(front, Nonce{});
        append(front, Nacl::secretBox(Nacl::hash(head), Nonce{}, key));
    }

    void write(ByteView bytes) const {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(textOf(bytes).data(), static_cast<std::streamsize>(bytes.size()));
    }
    void remove() const { std::filesystem::remove(path); }

    /// A valid file with these bytes as its items.
    Bytes sealed(ByteView items) const {
        Bytes file = front;
        append(file, Nonce{});
        append(file, Nacl::secretBox(items, Nonce{}, key));
        return file;
    }

    SealedFileStore store() const {
        return SealedFileStore(
            path, [](SealedFileStore::Reason) { return std::optional(passphrase()); }, cheap);
    }

    const TemporaryFolder folder;
    const std::filesystem::path path;

private:
    static void append(Bytes& out, ByteView bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }
    static Bytes headOf(const Nacl::PassphraseCost& cost) {
        Bytes head;
        append(head, bytesOf("VIMBLESF"));
        const auto put = [&](std::uint64_t value, int width) {
            for (int i = 0; i < width; ++i) head.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        };
        put(1, 4);
        put(cost.passes, 8);
        put(cost.memoryBytes, 8);
        head.resize(headBytes);  // a salt of zeros
        return head;
    }

    SecretKey key;
    Bytes front;  // the file up to the items
};

const File& file() {
    static const File one;
    return one;
}

SecretQuery everything(bool synchronizable) {
    SecretQuery query;
    query.synchronizable = synchronizable;
    return query;
}

bool isKnownStatus(SecretStatus status) {
    return status == SecretStatuses::ok || status == SecretStatuses::itemNotFound || status == SecretStatuses::decode ||
           status == SecretStatuses::authFailed || status == SecretStatuses::internalError;
}

/// Reads any file.
void readAny(ByteView bytes) {
    Bytes content(bytes.begin(), bytes.end());
    // A file may ask for up to a gigabyte and 16 passes. Lower such costs, so that a run is quick; leave costs beyond
    // these limits, which must be refused.
    if (content.size() > 27) {
        content[12] = content[12] > 16 ? content[12] : content[12] % 3;
        content[22] = 0;
        content[23] &= 0x80;
    }
    file().write(content);
    SealedFileStore store = file().store();
    check(isKnownStatus(store.copyMatching(everything(false)).status), "a file gives a status that nobody knows");
    const SecretStatus status = store.add({"a", "b", "c", {}, {}, false, Bytes{1}});
    check(isKnownStatus(status) || status == SecretStatuses::duplicateItem, "a file gives a status that nobody knows");
    if (status == SecretStatuses::ok) return;
    std::ifstream in(file().path, std::ios::binary);
    const std::string after((std::istreambuf_iterator<char>(in)), {});
    check(std::ranges::equal(bytesOf(after), content), "a file that can't be read was changed");
}

/// Reads any items under a valid seal.
void readItems(ByteView items) {
    file().write(file().sealed(items));
    SealedFileStore store = file().store();
    for (const bool synchronizable : {false, true}) {
        const auto found = store.copyMatching(everything(synchronizable));
        check(found.status == SecretStatuses::ok || found.status == SecretStatuses::itemNotFound ||
                  found.status == SecretStatuses::decode,
              "a sound seal is not opened");
        if (found.status != SecretStatuses::ok) continue;
        check(found.item.synchronizable == synchronizable, "another item was found");
        check(!found.item.data || found.item.data->size() <= largestField, "a field is too large");
        // An item that is written again must read as before.
        const auto query = everything(synchronizable);
        const Bytes data = found.item.data.value_or(Bytes{});
        check(store.update(query, data) == SecretStatuses::ok, "what was found can't be changed");
        auto again = store.copyMatching(query);
        again.item.data = found.item.data;
        check(again.status == SecretStatuses::ok && again.item == found.item, "an item comes back altered");
    }
}

std::optional<std::string> maybeText(FuzzInput& input) {
    static constexpr const char* texts[] = {"", "a", "b"};
    const std::size_t choice = input.below(5);
    if (choice == 4) return std::nullopt;
    return choice == 3 ? input.text() : texts[choice];
}

SecretItem item(FuzzInput& input) {
    SecretItem item{
        maybeText(input), maybeText(input), maybeText(input), maybeText(input), maybeText(input), input.flag(), {}};
    if (input.flag()) {
        const ByteView data = input.bytes();
        item.data = Bytes(data.begin(), data.end());
    }
    return item;
}

SecretQuery query(FuzzInput& input) {
    return {maybeText(input), maybeText(input), maybeText(input), maybeText(input), input.flag()};
}

/// Does the same operations on the file and on a list, and compares the outcomes.
void operate(FuzzInput& input) {
    file().remove();
    std::vector<SecretItem> items;
    for (int operations = 0; !input.isEmpty() && operations < 8; ++operations) {
        SealedFileStore store = file().store();
        switch (input.below(4)) {
            case 0: {
                const SecretItem added = item(input);
                const bool isThere = std::any_of(items.begin(), items.end(), [&](const SecretItem& each) {
                    return each.service == added.service && each.account == added.account &&
                           each.accessGroup == added.accessGroup && each.synchronizable == added.synchronizable;
                });
                check(store.add(added) == (isThere ? SecretStatuses::duplicateItem : SecretStatuses::ok),
                      "adding went wrong");
                if (!isThere) items.push_back(added);
                break;
            }
            case 1: {
                const SecretQuery asked = query(input);
                const auto known = std::find_if(items.begin(), items.end(),
                                                [&](const SecretItem& each) { return matches(asked, each); });
                const auto found = store.copyMatching(asked);
                check(found.status == (known == items.end() ? SecretStatuses::itemNotFound : SecretStatuses::ok),
                      "finding went wrong");
                check(known == items.end() || found.item == *known, "another item was found");
                break;
            }
            case 2: {
                const SecretQuery asked = query(input);
                const ByteView data = input.bytes();
                const auto known = std::find_if(items.begin(), items.end(),
                                                [&](const SecretItem& each) { return matches(asked, each); });
                check(store.update(asked, data) ==
                          (known == items.end() ? SecretStatuses::itemNotFound : SecretStatuses::ok),
                      "changing went wrong");
                if (known != items.end()) known->data = Bytes(data.begin(), data.end());
                break;
            }
            case 3: {
                const SecretQuery asked = query(input);
                const auto gone = std::erase_if(items, [&](const SecretItem& each) { return matches(asked, each); });
                check(store.remove(asked) == (gone ? SecretStatuses::ok : SecretStatuses::itemNotFound),
                      "removing went wrong");
                break;
            }
        }
    }
}

/// Reads a valid file with one byte altered.
void damage(FuzzInput& input) {
    const std::size_t at = input.byte() << 8 | input.byte();
    const std::uint8_t bits = input.byte();
    Bytes content = file().sealed(input.rest());
    // Leave the costs alone: deriving the key at an altered cost, before any check, could take minutes.
    const std::size_t place = at % content.size();
    if (bits == 0 || (place >= 12 && place < 28)) return;
    content[place] ^= bits;
    file().write(content);
    const SecretStatus status = file().store().copyMatching(everything(false)).status;
    check(status == SecretStatuses::decode || status == SecretStatuses::authFailed, "an altered file was opened");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    switch (input.below(4)) {
        case 0: readAny(input.rest()); break;
        case 1: readItems(input.rest()); break;
        case 2: operate(input); break;
        case 3: damage(input); break;
    }
    return 0;
}
