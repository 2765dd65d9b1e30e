#pragma once

#include "StateKit/Host.h"

#include <map>

/// A program and a machine whose every property is set by the test.
class FakeHost : public Host {
public:
    std::map<std::string, std::string, std::less<>> bundle = {
        {"CFBundleName", "Vimble"}, {"CFBundleShortVersionString", "1.2"}, {"CFBundleVersion", "34"}};
    std::optional<std::string> hardware = "x86_64";
    std::string system = "Version 12";
    std::string timeZone = "Europe/Zurich";
    std::string locale = "de_CH";
    std::optional<std::string> computer = "Desk";

    std::optional<std::string> bundleInfo(std::string_view key) const override {
        const auto found = bundle.find(key);
        return found == bundle.end() ? std::nullopt : std::optional(found->second);
    }
    std::optional<std::string> hardwareName() const override { return hardware; }
    std::string operatingSystemVersion() const override { return system; }
    std::string timeZoneIdentifier() const override { return timeZone; }
    std::string localeIdentifier() const override { return locale; }
    std::optional<std::string> computerName() const override { return computer; }
};
