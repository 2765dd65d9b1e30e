#include "VimbleKit/Keys.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace {

const std::string service = "zorvane.Vimble";
const std::string account = "identity.primary";
const std::string presentLabel = "Vimble Identity Secret Key";
const std::string accessible = "kSecAttrAccessibleWhenUnlocked";
const std::string oldLabel = "zorvane.Vimble NaCl Secret Key";
const std::string accessGroupSuffix = "zorvane.PrivateKeyIdentity";

SecretQuery presentItem() {
    SecretQuery query;
    query.service = service;
    query.account = account;
    return query;
}

SecretQuery synchronisedItem(const std::optional<std::string>& accessGroup) {
    SecretQuery query = presentItem();
    query.synchronizable = true;
    query.accessGroup = accessGroup;
    return query;
}

SecretQuery labelledItem(const std::optional<std::string>& accessGroup) {
    SecretQuery query;
    query.label = oldLabel;
    query.accessGroup = accessGroup;
    return query;
}

/// A buffer that held a secret, wiped when it goes out of scope.
struct WipedBytes {
    ~WipedBytes() { Nacl::wipe(bytes); }
    Bytes bytes;
};

/// The first of this program's access groups that is, or ends in a point and, our own.
std::optional<std::string> accessGroup(SecretStore& store) {
    const auto groups = store.accessGroups();
    if (!groups) return std::nullopt;
    const auto found = std::find_if(groups->begin(), groups->end(), [](const std::string& group) {
        return group == accessGroupSuffix || group.ends_with("." + accessGroupSuffix);
    });
    return found != groups->end() ? std::optional(*found) : std::nullopt;
}

KeysError failure(SecretStore& store, SecretStatus status) {
    return KeysError::securityError(status, store.errorMessage(status));
}

/// The item's data; nothing if there is no such item, or it holds none.
std::optional<Bytes> read(SecretStore& store, const SecretQuery& query) {
    SecretStore::Found found = store.copyMatching(query);
    if (found.status == SecretStatuses::itemNotFound) return std::nullopt;
    if (found.status != SecretStatuses::ok) throw failure(store, found.status);
    return std::move(found.item.data);
}

/// The secret key that an item's data spells; nothing if that is no key.
///
/// The oldest items were once read without a look at the length; what is not 32 bytes is no key there
/// either, since nothing could be computed from it.
std::optional<SecretKey> parse(std::optional<Bytes> data) {
    if (!data) return std::nullopt;
    const WipedBytes text{std::move(*data)};
    return Nacl::secretKeyFromHex(textOf(text.bytes));
}

/// The secret key that a text spells: exactly 64 hexadecimal characters.
SecretKey secretKeyFromText(std::string_view text) {
    if (text.size() != 2 * SecretKey::size) throw KeysError::badKeyFormat(text);
    auto key = Nacl::secretKeyFromHex(text);
    if (!key) throw KeysError::badKeyFormat(text);
    return std::move(*key);
}

}  // namespace

KeysError KeysError::securityError(SecretStatus status, std::string_view message) {
    KeysError error;
    error.code = Code::securityError;
    error.status = status;
    error.storeText = message;
    error.message = "The secret store failed: " + std::string(message) + " (" + std::to_string(status) + ")";
    return error;
}

KeysError KeysError::badKeyFormat(std::string_view text) {
    KeysError error;
    error.code = Code::badKeyFormat;
    error.message = "The text is no valid secret key";
    error.text = std::shared_ptr<const std::string>(new std::string(text), [](const std::string* secret) {
        Nacl::wipe(const_cast<std::string&>(*secret));
        delete secret;
    });
    return error;
}

KeysError KeysError::notFound() {
    KeysError error;
    error.message = "No key could be found";
    return error;
}

std::string_view KeysError::payload() const { return text ? std::string_view(*text) : std::string_view(); }

Keys::Keys(SecretKey secretKey) : publicKey(Nacl::publicKey(secretKey)), secretKey(std::move(secretKey)) {}

Keys::Keys(std::string_view secretKeyText) : Keys(secretKeyFromText(secretKeyText)) {}

std::optional<Keys> Keys::load(SecretStore& store) {
    if (auto secret = parse(read(store, presentItem()))) return Keys(std::move(*secret));

    const auto group = accessGroup(store);
    const auto move = [&](SecretKey secret, const std::vector<SecretQuery>& old) {
        Keys keys(std::move(secret));
        keys.save(store);
        // A failure here is of no consequence: the key is in the present item, and nobody finds the old one.
        for (const SecretQuery& query : old) static_cast<void>(store.remove(query));
        return keys;
    };
    if (group) {
        if (auto secret = parse(read(store, synchronisedItem(group))))
            return move(std::move(*secret), {synchronisedItem(group)});
    }
    if (auto secret = parse(read(store, synchronisedItem({})))) return move(std::move(*secret), {synchronisedItem({})});

    auto labelled = parse(read(store, labelledItem({})));
    if (!labelled && group) labelled = parse(read(store, labelledItem(group)));
    if (labelled) {
        std::vector<SecretQuery> old{labelledItem({})};
        if (group) old.push_back(labelledItem(group));
        return move(std::move(*labelled), old);
    }
    return std::nullopt;
}

Keys Keys::loadOrGenerate(SecretStore& store) {
    if (auto keys = load(store)) return std::move(*keys);
    return regenerate(store);
}

Keys Keys::generate() { return Keys(std::move(Nacl::keyPair().secretKey)); }

Keys Keys::regenerate(SecretStore& store) {
    Keys keys = generate();
    keys.save(store);
    return keys;
}

Keys Keys::replace(std::string_view secretKeyText, SecretStore& store) {
    Keys keys(secretKeyText);
    keys.save(store);
    return keys;
}

void Keys::save(SecretStore& store) const {
    std::string text = Nacl::hex(secretKey.view());
    const WipedBytes data{Bytes(text.begin(), text.end())};
    Nacl::wipe(text);

    const auto raise = [&](SecretStatus status) {
        if (status != SecretStatuses::ok) throw failure(store, status);
    };
    auto found = store.copyMatching(presentItem());
    if (found.item.data) Nacl::wipe(*found.item.data);
    if (found.status != SecretStatuses::itemNotFound) {
        raise(found.status);
        raise(store.update(presentItem(), data.bytes));
        return;
    }
    SecretItem item;
    item.service = service;
    item.account = account;
    item.label = presentLabel;
    item.accessible = accessible;
    item.data = data.bytes;
    const SecretStatus added = store.add(item);
    Nacl::wipe(*item.data);
    // Another writer was quicker.
    raise(added == SecretStatuses::duplicateItem ? store.update(presentItem(), data.bytes) : added);
}
