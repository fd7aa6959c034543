// JSON with the place of every value, so that a finding can be shown where it stands.
#pragma once

#include <string>
#include <vector>

namespace package {

struct JsonPosition {
    unsigned line = 0;
    unsigned column = 0;
};

struct JsonMember;

struct JsonValue {
    enum class Type { Text, Other, Object, Array };

    Type type = Type::Other; // Other: a number, boolean or null
    JsonPosition position;
    std::string text;                // of a Text; of an Other as it is written
    std::vector<JsonMember> members; // of an Object, in their order, repeated keys included
    std::vector<JsonValue> elements;

    bool isText() const { return type == Type::Text; }
    bool isObject() const { return type == Type::Object; }
    bool isArray() const { return type == Type::Array; }
    // The first member of that name, or null.
    const JsonValue* find(const std::string& key) const;
};

struct JsonMember {
    JsonValue key; // a Text
    JsonValue value;
};

struct JsonError {
    std::string text; // empty: none
    JsonPosition position;
};

// Accepts and refuses what the panel's reader does; besides, nesting deeper than 32 levels is an error.
JsonError parseJson(const std::string& text, JsonValue& root);

} // namespace package
