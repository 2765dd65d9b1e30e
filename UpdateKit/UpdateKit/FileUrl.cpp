#include "UpdateKit/FileUrl.h"

#include <algorithm>

namespace {

constexpr char scheme[] = "file";

char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

int digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = lowerCase(c);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

bool isPlain(char c) {
    return (c >= '0' && c <= '9') || (lowerCase(c) >= 'a' && lowerCase(c) <= 'z') ||
           std::string_view("-._~/!$&'()*+,;=:@").find(c) != std::string_view::npos;
}

bool isSame(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lowerCase(a) == lowerCase(b); });
}

}  // namespace

bool FileUrl::isFile(const Url& url) { return url.scheme && isSame(*url.scheme, scheme); }

Url FileUrl::of(const std::filesystem::path& path) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    Url url;
    url.scheme = scheme;
    url.host = "";
    for (const char c : path.native()) {
        if (isPlain(c)) {
            url.path += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        url.path += '%';
        url.path += digits[byte >> 4];
        url.path += digits[byte & 15];
    }
    return url;
}

std::optional<std::filesystem::path> FileUrl::path(const Url& url) {
    if (!isFile(url)) return std::nullopt;
    if (url.host && !url.host->empty() && !isSame(*url.host, "localhost")) return std::nullopt;
    std::string path = percentDecoded(url.path);
    if (!path.starts_with('/') || path.find('\0') != std::string::npos) return std::nullopt;
    return path;
}

std::string FileUrl::percentDecoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? digit(text[i + 1]) : -1;
        const int low = high >= 0 ? digit(text[i + 2]) : -1;
        if (low >= 0) {
            result += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}
