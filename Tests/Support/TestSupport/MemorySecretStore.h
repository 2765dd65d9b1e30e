#pragma once

#include "VimbleKit/SecretStore.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A secret store in memory, with the item model of `SecretStore`. For tests that link VimbleKit.
///
/// The test can make any call fail, and can change the items between two calls, as another program would.
class MemorySecretStore : public SecretStore {
public:
    std::vector<SecretItem> items;
    std::optional<std::vector<std::string>> groups;

    /// The names of the calls so far, in order, of those that return a status.
    std::vector<std::string> calls;

    /// Called before each of these calls, with its number, counted from 1.
    std::function<void(std::size_t call)> between;

    /// Makes the call of that number, counted from 1, fail and do nothing.
    void failCall(std::size_t number, SecretStatus status) {
        failing = number;
        failure = status;
    }
    /// Makes every call fail.
    void failAll(SecretStatus status) { failCall(0, status); }
    void failNone() { failing.reset(); }
    /// Counts calls from 1 again.
    void restartCount() { calls.clear(); }

    /// Adds an item of the form that `Keys` writes at present, with this text as the secret key.
    void put(std::string_view text) {
        SecretItem item;
        item.service = "zorvane.Vimble";
        item.account = "identity.primary";
        item.label = "Vimble Identity Secret Key";
        item.accessible = "kSecAttrAccessibleWhenUnlocked";
        item.data = Bytes(text.begin(), text.end());
        items.push_back(std::move(item));
    }

    Found copyMatching(const SecretQuery& query) override {
        if (const auto status = begin("copyMatching")) return {*status, {}};
        for (const SecretItem& item : items)
            if (matches(query, item)) return {SecretStatuses::ok, item};
        return {SecretStatuses::itemNotFound, {}};
    }

    SecretStatus add(const SecretItem& item) override {
        if (const auto status = begin("add")) return *status;
        const bool isThere = std::any_of(items.begin(), items.end(), [&](const SecretItem& other) {
            return other.service == item.service && other.account == item.account &&
                   other.accessGroup == item.accessGroup && other.synchronizable == item.synchronizable;
        });
        if (isThere) return SecretStatuses::duplicateItem;
        items.push_back(item);
        return SecretStatuses::ok;
    }

    SecretStatus update(const SecretQuery& query, ByteView data) override {
        if (const auto status = begin("update")) return *status;
        for (SecretItem& item : items) {
            if (!matches(query, item)) continue;
            item.data = Bytes(data.begin(), data.end());
            return SecretStatuses::ok;
        }
        return SecretStatuses::itemNotFound;
    }

    SecretStatus remove(const SecretQuery& query) override {
        if (const auto status = begin("remove")) return *status;
        const auto count = std::erase_if(items, [&](const SecretItem& item) { return matches(query, item); });
        return count > 0 ? SecretStatuses::ok : SecretStatuses::itemNotFound;
    }

    std::optional<std::vector<std::string>> accessGroups() override { return groups; }

    std::string errorMessage(SecretStatus status) override { return "status " + std::to_string(status); }

private:
    static bool matches(const SecretQuery& query, const SecretItem& item) {
        const auto agrees = [](const auto& wanted, const auto& has) { return !wanted || wanted == has; };
        return agrees(query.service, item.service) && agrees(query.account, item.account) &&
               agrees(query.label, item.label) && agrees(query.accessGroup, item.accessGroup) &&
               query.synchronizable == item.synchronizable;
    }

    /// Notes a call. @return the status with which it must fail, if it must
    std::optional<SecretStatus> begin(const char* name) {
        calls.emplace_back(name);
        if (between) between(calls.size());
        if (failing && (*failing == 0 || *failing == calls.size())) return failure;
        return std::nullopt;
    }

    std::optional<std::size_t> failing;  // 0: all
    SecretStatus failure = SecretStatuses::ok;
};
