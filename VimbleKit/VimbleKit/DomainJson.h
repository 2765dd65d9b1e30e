#pragma once

// The JSON forms of the engine's values that are no plain records. Include this header in source files
// only: the libraries behind `Json.h` are long.

#include "StateKit/Json.h"
#include "Text/Url.h"
#include "VimbleKit/Connection.h"
#include "VimbleKit/Endpoint.h"
#include "VimbleKit/KitError.h"

#include <optional>
#include <string>
#include <string_view>
#include <tuple>

/// An object with the one key "url". Reading refuses a text that is empty or no URL.
template <>
struct JsonForm<Endpoint> {
    struct Stored {
        std::string url;

        static constexpr auto fields = std::tuple{Field{"url", &Stored::url}};
    };

    template <class Writer>
    static void write(Writer& writer, const Endpoint& endpoint) {
        JsonDetail::write(writer, Stored{endpoint.url()});
    }

    template <class Source>
    static void read(Source& source, Endpoint& out) {
        Stored stored;
        JsonDetail::read(source, stored);
        if (stored.url.empty() || !Url::parse(stored.url)) throw JsonError("Invalid URL string.");
        out = Endpoint(stored.url);
    }
};

template <>
struct JsonForm<Connection> {
    template <class Writer>
    static void write(Writer& writer, Connection connection) {
        writer.StartObject();
        writer.Key(name(connection));
        writer.StartObject();
        writer.EndObject();
        writer.EndObject();
    }

    template <class Source>
    static void read(Source& source, Connection& out) {
        int casesFound = 0;
        bool isNestedObject = false;
        simdjson::ondemand::object object = source.get_object();
        for (auto field : object) {
            const std::string key{std::string_view(field.unescaped_key())};
            simdjson::ondemand::value value = field.value();
            for (const Connection connection : {Connection::setup, Connection::online, Connection::offline}) {
                if (key != name(connection)) continue;
                ++casesFound;
                isNestedObject = value.type() == simdjson::ondemand::json_type::object;
                out = connection;
            }
            JsonDetail::skip(value);
        }
        if (casesFound != 1) throw JsonError("Invalid number of keys found, expected one.");
        if (!isNestedObject) throw JsonError("The case's value is no object.");
    }

private:
    static const char* name(Connection connection) {
        switch (connection) {
            case Connection::setup: return "setup";
            case Connection::online: return "online";
            case Connection::offline: return "offline";
        }
        return "";
    }
};

template <>
struct JsonForm<KitError> {
    struct Stored {
        std::string code;
        std::optional<std::string> explanation;

        static constexpr auto fields =
            std::tuple{Field{"code", &Stored::code}, Field{"explanation", &Stored::explanation}};
    };

    template <class Writer>
    static void write(Writer& writer, const KitError& error) {
        JsonDetail::write(writer, Stored{KitError::name(error.code()), error.explanation()});
    }

    template <class Source>
    static void read(Source& source, KitError& out) {
        Stored stored;
        JsonDetail::read(source, stored);
        const auto code = KitError::code(stored.code);
        if (!code) throw JsonError("There is no such error code.");
        out = KitError(*code, stored.explanation);
    }
};
