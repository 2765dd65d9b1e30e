#include "PlatformCore/SecretItems.h"

bool matches(const SecretQuery& query, const SecretItem& item) {
    const auto agrees = [](const std::optional<std::string>& asked, const std::optional<std::string>& has) {
        return !asked || asked == has;
    };
    return agrees(query.service, item.service) && agrees(query.account, item.account) &&
           agrees(query.label, item.label) && agrees(query.accessGroup, item.accessGroup) &&
           query.synchronizable == item.synchronizable;
}

SecretQuery identityQuery(const SecretItem& item) {
    return {item.service, item.account, std::nullopt, item.accessGroup, item.synchronizable};
}

bool hasIdentityOf(const SecretItem& item, const SecretItem& other) {
    return item.service == other.service && item.account == other.account && item.accessGroup == other.accessGroup &&
           item.synchronizable == other.synchronizable;
}

void wipeData(SecretItem& item) {
    if (item.data) Nacl::wipe(*item.data);
}

std::string secretStatusText(SecretStatus status) {
    switch (status) {
        case SecretStatuses::ok: return "No error.";
        case SecretStatuses::duplicateItem: return "The secret is already in the store.";
        case SecretStatuses::itemNotFound: return "The secret is not in the store.";
        case SecretStatuses::userCanceled: return "The request was dismissed.";
        case SecretStatuses::notAvailable: return "No store for secrets is available.";
        case SecretStatuses::authFailed: return "The passphrase is wrong, or access was refused.";
        case SecretStatuses::interactionNotAllowed: return "The store for secrets is locked and could not be unlocked.";
        case SecretStatuses::decode: return "The store for secrets holds what can't be read.";
        case SecretStatuses::internalError: return "The store for secrets failed.";
        default: return "The store for secrets failed with status " + std::to_string(status) + ".";
    }
}
