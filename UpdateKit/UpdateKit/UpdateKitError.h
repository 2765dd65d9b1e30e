#pragma once

#include <exception>
#include <string>
#include <string_view>

/// What went wrong with an update, in the words that log and user get.
class [[nodiscard]] UpdateKitError : public std::exception {
public:
    /// The codes down to `installationFailed` take a payload, the others none.
    enum class Code {
        invalidManifest,
        invalidVersion,
        manifestLoadingFailed,
        downloadFailed,
        validationFailed,
        installationFailed,
        noUpdateAvailable,
        missingBundleVersion,
        extractionFailed,
        noAppBundleInArchive,
        multipleAppBundlesInArchive,
        noPreparedUpdate
    };

    /// @param payload  is appended to the code's text as it is; dropped if the code takes none
    explicit UpdateKitError(Code code, std::string_view payload = {});

    Code code() const { return _code; }
    const std::string& payload() const { return _payload; }

    /// The error's text: what `what()` says too.
    const std::string& localizedDescription() const { return text; }
    const char* what() const noexcept override { return text.c_str(); }

    bool operator==(const UpdateKitError& other) const { return _code == other._code && _payload == other._payload; }

private:
    Code _code;
    std::string _payload;
    std::string text;
};
