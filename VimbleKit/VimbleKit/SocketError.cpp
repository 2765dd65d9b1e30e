#include "VimbleKit/SocketError.h"

#include <utility>

SocketError::SocketError(Code code) : code(code) {
    switch (code) {
        case Code::networkFailure: text = "Network connnection failed"; break;
        case Code::authorizationFailure: text = "Authorization failed ()"; break;
        case Code::notConnected: text = "Not connected to the server"; break;
        case Code::badArgument: text = "Bad Argument"; break;
    }
}

SocketError SocketError::networkFailure(std::optional<TransportError> underlying) {
    SocketError error(Code::networkFailure);
    if (underlying) error.text += " (" + underlying->text + ")";
    error.underlying = std::move(underlying);
    return error;
}

SocketError SocketError::authorizationFailure(std::string explanation) {
    SocketError error(Code::authorizationFailure);
    error.text = "Authorization failed (" + explanation + ")";
    error.explanation = std::move(explanation);
    return error;
}
