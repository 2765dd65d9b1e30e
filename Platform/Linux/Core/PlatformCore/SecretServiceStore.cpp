#include "PlatformCore/SecretServiceStore.h"

#include "PlatformCore/LibsecretClient.h"
#include "PlatformCore/SecretItems.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>

namespace {

using ServiceItem = LibsecretClient::Item;

/// How often a look-up may ask for an unlock. Without a limit it would never end with a service that locks
/// again what it has unlocked.
constexpr int mostUnlocks = 32;

bool canShowPrompts() {
    for (const char* variable : {"WAYLAND_DISPLAY", "DISPLAY"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return true;
    }
    return false;
}

SecretStatus statusOf(SecretServiceFailure::Kind kind) {
    switch (kind) {
        case SecretServiceFailure::Kind::dismissed:
            return canShowPrompts() ? SecretStatuses::userCanceled : SecretStatuses::interactionNotAllowed;
        case SecretServiceFailure::Kind::locked: return SecretStatuses::interactionNotAllowed;
        case SecretServiceFailure::Kind::notAvailable: return SecretStatuses::notAvailable;
        case SecretServiceFailure::Kind::refused: return SecretStatuses::authFailed;
        case SecretServiceFailure::Kind::unreadable: return SecretStatuses::decode;
        case SecretServiceFailure::Kind::internal: return SecretStatuses::internalError;
    }
    return SecretStatuses::internalError;
}

/// The service's item as a record of ours, without its data.
SecretItem itemOf(const ServiceItem& source) {
    const auto attribute = [&source](const char* name) -> std::optional<std::string> {
        const auto found = source.attributes.find(name);
        if (found == source.attributes.end()) return std::nullopt;
        return found->second;
    };
    SecretItem item;
    item.service = attribute("service");
    item.account = attribute("account");
    item.accessible = attribute("accessible");
    item.accessGroup = attribute("accessGroup");
    item.synchronizable = attribute("synchronizable") == "yes";
    if (!source.label.empty()) item.label = source.label;
    return item;
}

void put(std::map<std::string, std::string>& attributes, const char* name, const std::optional<std::string>& value) {
    if (value) attributes[name] = *value;
}

std::vector<ServiceItem> candidates(LibsecretClient& client, const SecretQuery& query) {
    if (!query.service && !query.account && !query.accessGroup) return client.list();
    std::map<std::string, std::string> attributes;
    put(attributes, "service", query.service);
    put(attributes, "account", query.account);
    put(attributes, "accessGroup", query.accessGroup);
    attributes["synchronizable"] = query.synchronizable ? "yes" : "no";
    return client.search(attributes);
}

/// The items that a query has found, and the client that they belong to.
struct Matches {
    std::unique_ptr<LibsecretClient> client;
    std::vector<ServiceItem> items;  // unlocked, the oldest first
};

/// Looks for items that satisfy `isMeant`; returns none only if nothing is locked that could hide one.
template <class Predicate>
Matches find(const SecretQuery& query, Predicate isMeant) {
    for (int unlocks = 0; unlocks < mostUnlocks; ++unlocks) {
        Matches found{std::make_unique<LibsecretClient>(), {}};
        std::shared_ptr<void> toUnlock;
        for (ServiceItem& item : candidates(*found.client, query)) {
            // A locked item may have no label yet, so `isMeant` is asked after it is unlocked.
            if (item.isLocked && !toUnlock) toUnlock = item.object;
            if (!item.isLocked && isMeant(itemOf(item))) found.items.push_back(std::move(item));
        }
        if (!found.items.empty()) return found;
        if (!toUnlock) {
            const auto locked = found.client->lockedCollections();
            if (locked.empty()) return found;
            toUnlock = locked.front();
        }
        found.client->unlock(toUnlock);
    }
    throw SecretServiceFailure{SecretServiceFailure::Kind::locked, "it locks itself again"};
}

Matches find(const SecretQuery& query) {
    return find(query, [&query](const SecretItem& item) { return matches(query, item); });
}

Matches findIdentity(const SecretItem& wanted) {
    return find(identityQuery(wanted), [&wanted](const SecretItem& item) { return hasIdentityOf(item, wanted); });
}

}  // namespace

SecretStatus SecretServiceStore::run(const std::function<SecretStatus()>& operation) {
    const LibsecretClient::Scope scope;
    try {
        return operation();
    } catch (const SecretServiceFailure& failure) {
        failedBecause = failure.why;
        return failedStatus = statusOf(failure.kind);
    }
}

SecretStore::Found SecretServiceStore::copyMatching(const SecretQuery& query) {
    Found result;
    result.status = run([&] {
        const Matches found = find(query);
        if (found.items.empty()) return SecretStatuses::itemNotFound;
        const ServiceItem& item = found.items.front();
        result.item = itemOf(item);
        result.item.data = found.client->load(item);
        return SecretStatuses::ok;
    });
    return result;
}

SecretStatus SecretServiceStore::add(const SecretItem& item) {
    return run([&] {
        const Matches known = findIdentity(item);
        if (!known.items.empty()) return SecretStatuses::duplicateItem;
        std::map<std::string, std::string> attributes;
        put(attributes, "service", item.service);
        put(attributes, "account", item.account);
        put(attributes, "accessible", item.accessible);
        put(attributes, "accessGroup", item.accessGroup);
        attributes["synchronizable"] = item.synchronizable ? "yes" : "no";
        const std::string created =
            known.client->create(attributes, item.label.value_or(""), item.data ? ByteView(*item.data) : ByteView());

        const Matches now = findIdentity(item);
        if (now.items.empty() || now.items.front().path == created) return SecretStatuses::ok;
        for (const ServiceItem& mine : now.items)
            if (mine.path == created) now.client->remove(mine);
        return SecretStatuses::duplicateItem;
    });
}

SecretStatus SecretServiceStore::update(const SecretQuery& query, ByteView data) {
    return run([&] {
        const Matches found = find(query);
        if (found.items.empty()) return SecretStatuses::itemNotFound;
        found.client->setData(found.items.front(), data);
        return SecretStatuses::ok;
    });
}

SecretStatus SecretServiceStore::remove(const SecretQuery& query) {
    return run([&] {
        const Matches found = find(query);
        if (found.items.empty()) return SecretStatuses::itemNotFound;
        for (const ServiceItem& item : found.items) found.client->remove(item);
        return SecretStatuses::ok;
    });
}

std::optional<std::vector<std::string>> SecretServiceStore::accessGroups() { return std::nullopt; }

std::string SecretServiceStore::errorMessage(SecretStatus status) {
    const std::string text = secretStatusText(status);
    return status != failedStatus || failedBecause.empty() ? text : text + " (" + failedBecause + ")";
}
