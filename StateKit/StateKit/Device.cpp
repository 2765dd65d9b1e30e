#include "StateKit/Device.h"

namespace Device {

std::string userAgent(const Host& host) {
    const auto info = [&](const char* key) { return host.bundleInfo(key); };
    auto application = info("LDUserAgentApp");
    if (!application) application = info("CFBundleName");

    std::string text = application.value_or("Unknown");
    text += '/';
    text += info("CFBundleShortVersionString").value_or("Unknown");
    text += '_';
    text += info("CFBundleVersion").value_or("Unknown");
    text += " (";
    text += host.timeZoneIdentifier();
    text += "; ";
    text += host.localeIdentifier();
    text += ") ";
    text += host.hardwareName().value_or("Unknown Mac");
    text += " macOS/";
    text += host.operatingSystemVersion();
    return text;
}

std::string name(const Host& host) { return host.computerName().value_or("Unnamed Mac"); }

}  // namespace Device
