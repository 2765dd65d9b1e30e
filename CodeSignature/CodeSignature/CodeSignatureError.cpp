#include "CodeSignature/CodeSignatureError.h"

#include "CodeSignature/EscapedText.h"

CodeSignatureError::CodeSignatureError(CodeSignatureErrorCode code, std::string_view path, std::string_view text)
    : CodeSignatureError(code, (path.empty() ? "the bundle" : escapedText(path)) + ": " + std::string(text)) {}
