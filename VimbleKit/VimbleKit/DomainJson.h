#pragma once

// The JSON forms of the engine's values that are no plain records. Include this header in source files
// only: the libraries behind `Json.h` are long.

#include "StateKit/Json.h"
#include "VimbleKit/Connection.h"
#include "VimbleKit/Endpoint.h"
#include "VimbleKit/KitError.h"

/// The text of the URL under the one key "url", where it must be one.
template <>
struct JsonForm<Endpoint> {
    static void write(JsonWriter& writer, const Endpoint& endpoint);
    static void read(JsonReader& reader, Endpoint& out);
};

/// An object with one key, the case's name, and under it an object, which is written empty.
template <>
struct JsonForm<Connection> {
    static void write(JsonWriter& writer, Connection connection);
    static void read(JsonReader& reader, Connection& out);
};

/// The code's name under the key "code", and the explanation, if there is one.
template <>
struct JsonForm<KitError> {
    static void write(JsonWriter& writer, const KitError& error);
    static void read(JsonReader& reader, KitError& out);
};
