#pragma once

// The JSON form of a type, found by its list of fields. A header that declares such a list takes only
// `Record.h`; the source file that reads or writes the type takes this one.

#include "Base/Bytes.h"
#include "StateKit/Date.h"
#include "StateKit/JsonError.h"
#include "StateKit/JsonReader.h"
#include "StateKit/JsonWriter.h"
#include "StateKit/Record.h"
#include "StateKit/SharedList.h"
#include "StateKit/SharedMap.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

/// The JSON form of a type that is neither a `Record` nor built in here.
///
/// A specialisation has `static void write(JsonWriter&, const Type&)` and
/// `static void read(JsonReader&, Type&)`, which throws on anything but this form.
template <class Type>
struct JsonForm;

namespace JsonDetail {

template <class Type>
inline constexpr bool isList = false;
template <class Type>
inline constexpr bool isList<std::vector<Type>> = true;
template <class Type>
inline constexpr bool isList<SharedList<Type>> = true;
template <class Type>
inline constexpr bool isMap = false;
template <class Type>
inline constexpr bool isMap<SharedMap<std::string, Type>> = true;

template <class Type>
void write(JsonWriter& writer, const Type& value) {
    if constexpr (std::same_as<Type, bool>) {
        writer.boolean(value);
    } else if constexpr (std::signed_integral<Type>) {
        writer.integer(value);
    } else if constexpr (std::unsigned_integral<Type>) {
        writer.unsignedInteger(value);
    } else if constexpr (std::same_as<Type, double>) {
        writer.number(value);
    } else if constexpr (std::same_as<Type, Date>) {
        writer.number(value.sinceReference);
    } else if constexpr (std::convertible_to<const Type&, std::string_view>) {
        writer.text(value);
    } else if constexpr (isOptional<Type>) {
        if (value)
            write(writer, *value);
        else
            writer.null();
    } else if constexpr (isList<Type>) {
        writer.startArray();
        for (const auto& element : value) write(writer, element);
        writer.endArray();
    } else if constexpr (isMap<Type>) {
        writer.startObject();
        for (const auto& [key, element] : value) {
            writer.key(key);
            write(writer, element);
        }
        writer.endObject();
    } else if constexpr (Record<Type>) {
        writer.startObject();
        forEachField<Type>([&](const auto& field) {
            if (!field.isStored) return;
            const auto& member = value.*field.member;
            if constexpr (isOptional<std::remove_cvref_t<decltype(member)>>)
                if (!member) return;
            writer.constantKey(field.name);
            write(writer, member);
        });
        writer.endObject();
    } else {
        JsonForm<Type>::write(writer, value);
    }
}

template <class Type>
void read(JsonReader& reader, Type& out);

template <class Type, std::size_t index>
void readField(JsonReader* value, void* record) {
    auto& member = static_cast<Type*>(record)->*std::get<index>(Type::fields).member;
    if (value)
        read(*value, member);
    else
        member = {};
}

template <class Type, std::size_t... indices>
constexpr std::array<JsonReader::Field, sizeof...(indices)> fieldsFor(std::index_sequence<indices...>) {
    const auto isOptionalField = []<class Member>(const Field<Type, Member>&) { return isOptional<Member>; };
    return {JsonReader::Field{std::get<indices>(Type::fields).name, std::get<indices>(Type::fields).isStored,
                              isOptionalField(std::get<indices>(Type::fields)), readField<Type, indices>}...};
}

/// A record's fields for the reader, made by the compiler.
template <Record Type>
inline constexpr auto readerFields =
    fieldsFor<Type>(std::make_index_sequence<std::tuple_size_v<std::remove_cvref_t<decltype(Type::fields)>>>());

template <class Type>
void read(JsonReader& reader, Type& out) {
    if constexpr (std::same_as<Type, bool>) {
        out = reader.boolean();
    } else if constexpr (std::signed_integral<Type>) {
        using Limits = std::numeric_limits<Type>;
        out = static_cast<Type>(reader.integer(Limits::min(), Limits::max()));
    } else if constexpr (std::unsigned_integral<Type>) {
        out = static_cast<Type>(reader.unsignedInteger(std::numeric_limits<Type>::max()));
    } else if constexpr (std::same_as<Type, double>) {
        out = reader.number();
    } else if constexpr (std::same_as<Type, Date>) {
        out.sinceReference = reader.number();
    } else if constexpr (std::same_as<Type, std::string>) {
        reader.text(out);
    } else if constexpr (isOptional<Type>) {
        if (reader.isNull())
            out.reset();
        else
            read(reader, out.emplace());
    } else if constexpr (isList<Type>) {
        out = Type();
        reader.forEachElement([&](JsonReader& element) {
            typename Type::value_type item{};
            read(element, item);
            out.push_back(std::move(item));
        });
    } else if constexpr (isMap<Type>) {
        out = Type();
        reader.forEachMember([&](std::string_view key, JsonReader& value) {
            const std::string ownKey(key);
            std::remove_cvref_t<decltype(*out.find(ownKey))> item{};
            read(value, item);
            out.set(ownKey, std::move(item));
        });
    } else if constexpr (Record<Type>) {
        static_assert(readerFields<Type>.size() <= JsonReader::maxFields);
        reader.readRecord(readerFields<Type>, &out);
    } else {
        JsonForm<Type>::read(reader, out);
    }
}

template <class Type>
void readAt(JsonReader& reader, void* out) {
    read(reader, *static_cast<Type*>(out));
}

}  // namespace JsonDetail

/// Writes and reads JSON by a type's list of fields.
///
/// Reading: every field is required unless it is optional (absent or null reads as nothing), unknown
/// keys are ignored, the last of repeated keys counts. The text must be valid UTF-8 and contain nothing
/// but the value. Doubles are exact both ways. Any thread.
namespace Json {

/// @throws JsonError  for text that is not UTF-8, and numbers that are not finite
template <class Type>
[[nodiscard]] JsonText encode(const Type& value) {
    auto writer = JsonWriter::compact();
    JsonDetail::write(*writer, value);
    return JsonText(std::move(writer));
}

/// The same over many lines, for files that people may look into.
template <class Type>
[[nodiscard]] JsonText encodePretty(const Type& value) {
    auto writer = JsonWriter::pretty();
    JsonDetail::write(*writer, value);
    return JsonText(std::move(writer));
}

/// @throws JsonError  what was wrong with the text, in words
template <class Type>
[[nodiscard]] Type decode(const JsonInput& input) {
    Type value{};
    JsonReader::readText(input, JsonDetail::readAt<Type>, &value);
    return value;
}

template <class Type>
[[nodiscard]] Type decode(ByteView bytes) {
    Type value{};
    JsonReader::readText(bytes, JsonDetail::readAt<Type>, &value);
    return value;
}

}  // namespace Json
