#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

/// The kind of a failure, for callers that treat the kinds differently; the text is for people.
enum class CodeSignatureErrorCode {
    unreadable,    // the bundle or a file in it could not be read, or changed meanwhile
    noBundle,      // there is no bundle
    unsealable,    // the bundle holds what can't be sealed; the text names it
    noSeal,        // nobody has sealed it
    badSeal,       // the seal itself is damaged, incomplete or more than it should be
    filesDiffer,   // the bundle is not what was sealed; the text names the first difference
    badSignature,  // the signature, or the chain of certificates behind it, doesn't hold
    badIdentity,   // the identity to sign with can't be used
    notWritten,    // the new seal could not be put in its place; the old one is where it was
};

/// Why a bundle was not sealed, or its seal was refused. Any thread.
class [[nodiscard]] CodeSignatureError : public std::runtime_error {
public:
    /// @param text  one line, without a full stop; names that others chose are escaped in it (`EscapedText`)
    CodeSignatureError(CodeSignatureErrorCode code, const std::string& text) : std::runtime_error(text), code(code) {}
    /// @param path  of the file that the error is about, relative to the bundle; empty: the bundle itself
    CodeSignatureError(CodeSignatureErrorCode code, std::string_view path, std::string_view text);

    CodeSignatureErrorCode code;
};
