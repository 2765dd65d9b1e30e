#include "PlatformCore/SealedFileStore.h"

#include "Base/File.h"
#include "PlatformCore/SecretItems.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <span>
#include <string_view>
#include <sys/file.h>
#include <system_error>
#include <thread>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr std::string_view magic = "VIMBLESF";
constexpr std::uint32_t version = 1;
constexpr std::size_t plainHeadBytes = 8 + 4 + 8 + 8 + Nacl::saltBytes;
constexpr std::size_t checkBytes = Nacl::nonceBytes + Nacl::authenticatorBytes + Nacl::hashBytes;
constexpr std::size_t bodyStart = plainHeadBytes + checkBytes;
constexpr std::size_t smallestFile = bodyStart + Nacl::nonceBytes + Nacl::authenticatorBytes;

constexpr std::size_t largestFile = 1 << 20;
constexpr std::uint32_t mostItems = 1000;
constexpr std::size_t largestField = 64 << 10;
constexpr std::uint64_t mostPasses = 16;
constexpr std::uint64_t mostMemory = 1 << 30;

constexpr auto lockRetry = std::chrono::milliseconds(20);
constexpr int lockRetries = 500;  // 10 seconds

std::string systemText(const fs::path& path, const std::error_code& error) {
    return path.string() + ": " + error.message();
}

/// Bytes that hold secrets. They are wiped at the end, and room is reserved so that growing leaves no copy behind.
class SecretBytes {
public:
    explicit SecretBytes(std::size_t capacity) { bytes.reserve(capacity); }
    explicit SecretBytes(Bytes&& given) : bytes(std::move(given)) {}
    ~SecretBytes() { Nacl::wipe(bytes); }
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;
    Bytes bytes;
};

void putNumber(Bytes& out, std::uint64_t value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void putBytes(Bytes& out, ByteView bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

/// Takes numbers and runs off the front of bytes; `isGood` ends false when they do not suffice.
struct Reader {
    ByteView rest;
    bool isGood = true;

    ByteView take(std::size_t count) {
        if (!isGood || rest.size() < count) {
            isGood = false;
            return {};
        }
        const ByteView taken = rest.first(count);
        rest = rest.subspan(count);
        return taken;
    }

    std::uint64_t number(std::size_t width) {
        std::uint64_t value = 0;
        const ByteView bytes = take(width);
        for (std::size_t i = 0; i < bytes.size(); ++i) value |= static_cast<std::uint64_t>(bytes[i]) << (8 * i);
        return value;
    }

    std::optional<ByteView> field() {
        const std::uint64_t presence = number(1);
        if (presence == 0) return std::nullopt;
        const std::uint64_t length = number(4);
        if (presence != 1 || length > largestField) isGood = false;
        return take(isGood ? static_cast<std::size_t>(length) : 0);
    }

    std::optional<std::string> text() {
        const auto bytes = field();
        if (!bytes) return std::nullopt;
        return std::string(textOf(*bytes));
    }
};

template <std::size_t size>
std::array<std::uint8_t, size> arrayOf(ByteView bytes) {
    std::array<std::uint8_t, size> result{};
    std::copy_n(bytes.begin(), std::min(size, bytes.size()), result.begin());
    return result;
}

bool isTooLarge(const SecretItem& item) {
    for (const auto* text : {&item.service, &item.account, &item.label, &item.accessible, &item.accessGroup})
        if (*text && (*text)->size() > largestField) return true;
    return item.data && item.data->size() > largestField;
}

std::size_t sealedSize(const std::vector<SecretItem>& items) {
    std::size_t size = 4;
    for (const SecretItem& item : items) {
        size += 1 + 6 * 5;
        for (const auto* text : {&item.service, &item.account, &item.label, &item.accessible, &item.accessGroup})
            size += *text ? (*text)->size() : 0;
        size += item.data ? item.data->size() : 0;
    }
    return size;
}

void writeItems(Bytes& out, const std::vector<SecretItem>& items) {
    const auto put = [&out](const auto& field, const auto& view) {
        putNumber(out, field ? 1 : 0, 1);
        if (!field) return;
        putNumber(out, field->size(), 4);
        putBytes(out, view(*field));
    };
    const auto text = [](const std::string& value) { return bytesOf(value); };
    putNumber(out, items.size(), 4);
    for (const SecretItem& item : items) {
        putNumber(out, item.synchronizable ? 1 : 0, 1);
        put(item.service, text);
        put(item.account, text);
        put(item.label, text);
        put(item.accessible, text);
        put(item.accessGroup, text);
        put(item.data, [](const Bytes& value) { return ByteView(value); });
    }
}

bool readItems(ByteView bytes, std::vector<SecretItem>& items) {
    Reader reader{bytes};
    const std::uint64_t count = reader.number(4);
    if (count > mostItems) return false;
    for (std::uint64_t i = 0; i < count && reader.isGood; ++i) {
        SecretItem item;
        const std::uint64_t synchronizable = reader.number(1);
        if (synchronizable > 1) return false;
        item.synchronizable = synchronizable == 1;
        item.service = reader.text();
        item.account = reader.text();
        item.label = reader.text();
        item.accessible = reader.text();
        item.accessGroup = reader.text();
        if (const auto data = reader.field()) item.data = Bytes(data->begin(), data->end());
        items.push_back(std::move(item));
    }
    return reader.isGood && reader.rest.empty();
}

}  // namespace

/// The items as they are in memory between two operations on the file: for the length of one only.
struct SealedFileStore::Contents {
    Contents() = default;
    Contents(const Contents&) = delete;
    Contents& operator=(const Contents&) = delete;
    ~Contents() {
        for (SecretItem& item : items) wipeData(item);
    }

    bool exists = false;
    Head head;
    fs::path path;  // where the file is, behind all links
    std::vector<SecretItem> items;
};

/// Keeps other programs from changing the file between reading and writing.
class SealedFileStore::Lock {
public:
    explicit Lock(const fs::path& target)
        : path(target.string() + ".lock"), file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
        if (!file) {
            error = errno;
            return;
        }
        for (int tries = 0; flock(file.get(), LOCK_EX | LOCK_NB) != 0; ++tries) {
            error = errno;
            if ((error != EWOULDBLOCK && error != EINTR) || tries == lockRetries) return;
            std::this_thread::sleep_for(lockRetry);
        }
        error = 0;
    }

    const fs::path path;
    int error = 0;  // 0 once held

private:
    const FileDescriptor file;
};

SealedFileStore::SealedFileStore(fs::path file, AskPassphrase ask, Nacl::PassphraseCost cost)
    : file(std::move(file)), ask(std::move(ask)), newCost(cost) {}

SealedFileStore::~SealedFileStore() = default;

SecretStatus SealedFileStore::fail(SecretStatus status, std::string why) {
    failedStatus = status;
    failedBecause = std::move(why);
    return status;
}

SecretStatus SealedFileStore::askFor(Reason reason) {
    passphrase = ask ? ask(reason) : std::nullopt;
    if (!passphrase) return fail(SecretStatuses::userCanceled, "no passphrase was given");
    if (!passphrase->isEmpty()) return SecretStatuses::ok;
    passphrase.reset();
    return fail(SecretStatuses::authFailed, "the passphrase is empty");
}

SecretStatus SealedFileStore::derive(const Head& head) {
    if (derivedFor == head) return SecretStatuses::ok;
    derivedFor.reset();
    try {
        key = Nacl::keyFromPassphrase(*passphrase, head.salt, head.cost);
    } catch (const NaclError&) {
        return fail(SecretStatuses::internalError, "not enough memory for the passphrase's key");
    }
    derivedFor = head;
    return SecretStatuses::ok;
}

SecretStatus SealedFileStore::unlock(const Head& head, ByteView sealedHead, ByteView check) {
    if (!passphrase)
        if (const SecretStatus status = askFor(Reason::existingFile); status != SecretStatuses::ok) return status;
    if (const SecretStatus status = derive(head); status != SecretStatuses::ok) return status;
    try {
        const auto nonce = arrayOf<Nacl::nonceBytes>(check.first(Nacl::nonceBytes));
        const Bytes seen = Nacl::openSecretBox(check.subspan(Nacl::nonceBytes), nonce, key);
        const auto expected = Nacl::hash(sealedHead);
        if (std::equal(seen.begin(), seen.end(), expected.begin(), expected.end())) return SecretStatuses::ok;
    } catch (const NaclError&) {
        // The box does not open under a wrong passphrase, which is reported below.
    }
    passphrase.reset();
    derivedFor.reset();
    return fail(SecretStatuses::authFailed, "wrong passphrase for " + file.string());
}

SecretStatus SealedFileStore::load(Contents& contents) {
    const auto damaged = [this](std::string_view how) {
        return fail(SecretStatuses::decode, file.string() + " " + std::string(how));
    };
    std::optional<Bytes> found;
    try {
        contents.path = File::followed(fs::absolute(file));
        found = File::readIfThere(contents.path, largestFile);
        // No file means an empty store only if its folder exists: otherwise its disk may not be mounted.
        if (!found && fs::is_directory(contents.path.parent_path())) return SecretStatuses::ok;
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::file_too_large) return damaged("is too large");
        if (error.code() == std::errc::is_a_directory || error.code() == std::errc::invalid_argument)
            return fail(SecretStatuses::notAvailable, file.string() + " is not a file");
        return fail(SecretStatuses::notAvailable, systemText(file, error.code()));
    }
    if (!found) return fail(SecretStatuses::notAvailable, systemText(file, {ENOENT, std::generic_category()}));

    const Bytes& sealed = *found;
    Reader reader{sealed};
    const bool isOurs = textOf(reader.take(magic.size())) == magic;
    if (!isOurs) return damaged("is not a file of secrets");
    if (reader.number(4) != version) return damaged("was written by another version");
    if (sealed.size() < smallestFile) return damaged("is cut short");
    contents.head.cost.passes = reader.number(8);
    contents.head.cost.memoryBytes = reader.number(8);
    contents.head.salt = arrayOf<Nacl::saltBytes>(reader.take(Nacl::saltBytes));
    if (contents.head.cost.passes > mostPasses || contents.head.cost.memoryBytes > mostMemory)
        return damaged("asks for too much work or memory");

    const ByteView view(sealed);
    if (const SecretStatus result = unlock(contents.head, view.first(plainHeadBytes), reader.take(checkBytes));
        result != SecretStatuses::ok)
        return result;
    try {
        const auto nonce = arrayOf<Nacl::nonceBytes>(reader.take(Nacl::nonceBytes));
        const SecretBytes plain(Nacl::openSecretBox(reader.rest, nonce, key));
        if (!readItems(plain.bytes, contents.items)) return damaged("is damaged");
    } catch (const NaclError&) {
        return damaged("is damaged");
    }
    contents.exists = true;
    return SecretStatuses::ok;
}

SecretStatus SealedFileStore::save(const Contents& contents) {
    if (contents.items.size() > mostItems) return fail(SecretStatuses::internalError, "too many secrets");
    SecretBytes plain(sealedSize(contents.items));
    writeItems(plain.bytes, contents.items);

    Bytes sealed;
    putBytes(sealed, bytesOf(magic));
    putNumber(sealed, version, 4);
    putNumber(sealed, contents.head.cost.passes, 8);
    putNumber(sealed, contents.head.cost.memoryBytes, 8);
    putBytes(sealed, contents.head.salt);
    const Nonce checkNonce = Nacl::randomNonce();
    const Bytes check = Nacl::secretBox(Nacl::hash(sealed), checkNonce, key);
    putBytes(sealed, checkNonce);
    putBytes(sealed, check);
    const Nonce nonce = Nacl::randomNonce();
    putBytes(sealed, nonce);
    putBytes(sealed, Nacl::secretBox(plain.bytes, nonce, key));
    if (sealed.size() > largestFile) return fail(SecretStatuses::internalError, "too many secrets");

    try {
        File::replace(contents.path, sealed, {.durability = File::Durability::powerLoss});
    } catch (const std::system_error& error) {
        return fail(SecretStatuses::notAvailable, systemText(contents.path, error.code()));
    }
    return SecretStatuses::ok;
}

/// Reads, changes and writes as one step for all programs.
template <class Change>
SecretStatus SealedFileStore::change(Change apply) {
    // Other programs should not wait while a user types, so the passphrase comes before the lock.
    Contents before;
    SecretStatus status = load(before);
    if (status != SecretStatuses::ok) return status;
    if (!before.exists) {
        // If there is nothing to change in an empty store, return before asking for a passphrase.
        status = apply(before.items);
        if (status != SecretStatuses::ok) return status;
        if (!passphrase) status = askFor(Reason::newFile);
        if (status != SecretStatuses::ok) return status;
    }
    const Lock lock(before.path);
    if (lock.error != 0)
        return fail(SecretStatuses::notAvailable, lock.error == EWOULDBLOCK
                                                      ? file.string() + " is in use by another program"
                                                      : systemText(lock.path, {lock.error, std::generic_category()}));
    Contents contents;
    status = load(contents);
    if (status != SecretStatuses::ok) return status;
    status = apply(contents.items);
    if (status != SecretStatuses::ok) return status;
    if (!contents.exists) {
        contents.head.cost = newCost;
        Nacl::randomBytes(contents.head.salt);
        status = derive(contents.head);
        if (status != SecretStatuses::ok) return status;
    }
    return save(contents);
}

SecretStore::Found SealedFileStore::copyMatching(const SecretQuery& query) {
    Contents contents;
    if (const SecretStatus status = load(contents); status != SecretStatuses::ok) return {status, {}};
    for (SecretItem& item : contents.items)
        if (matches(query, item)) return {SecretStatuses::ok, std::move(item)};
    return {SecretStatuses::itemNotFound, {}};
}

SecretStatus SealedFileStore::add(const SecretItem& item) {
    if (isTooLarge(item)) return fail(SecretStatuses::internalError, "the secret is too large");
    return change([&item](std::vector<SecretItem>& items) {
        for (const SecretItem& known : items)
            if (hasIdentityOf(known, item)) return SecretStatuses::duplicateItem;
        // Reserve the room first: a vector that grows leaves its old memory unwiped.
        std::vector<SecretItem> grown;
        grown.reserve(items.size() + 1);
        for (SecretItem& known : items) grown.push_back(std::move(known));
        grown.push_back(item);
        items = std::move(grown);
        return SecretStatuses::ok;
    });
}

SecretStatus SealedFileStore::update(const SecretQuery& query, ByteView data) {
    if (data.size() > largestField) return fail(SecretStatuses::internalError, "the secret is too large");
    return change([&query, data](std::vector<SecretItem>& items) {
        for (SecretItem& item : items) {
            if (!matches(query, item)) continue;
            wipeData(item);
            item.data = Bytes(data.begin(), data.end());
            return SecretStatuses::ok;
        }
        return SecretStatuses::itemNotFound;
    });
}

SecretStatus SealedFileStore::remove(const SecretQuery& query) {
    return change([&query](std::vector<SecretItem>& items) {
        const auto gone = std::stable_partition(items.begin(), items.end(),
                                                [&](const SecretItem& item) { return !matches(query, item); });
        if (gone == items.end()) return SecretStatuses::itemNotFound;
        for (auto item = gone; item != items.end(); ++item) wipeData(*item);
        items.erase(gone, items.end());
        return SecretStatuses::ok;
    });
}

std::optional<std::vector<std::string>> SealedFileStore::accessGroups() { return std::nullopt; }

std::string SealedFileStore::errorMessage(SecretStatus status) {
    const std::string text = secretStatusText(status);
    return status != failedStatus || failedBecause.empty() ? text : text + " (" + failedBecause + ")";
}
