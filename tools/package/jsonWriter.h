// JSON that is written member by member.
#pragma once

#include <cstdint>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <string>

namespace package {

class JsonWriter {
public:
    JsonWriter() {
        writer_.SetIndent(' ', 2);
        writer_.SetMaxDecimalPlaces(3);
    }
    void open(const char* key = nullptr) {
        name(key);
        writer_.StartObject();
    }
    void close() { writer_.EndObject(); }
    void openList(const char* key) {
        name(key);
        writer_.StartArray();
    }
    void closeList() { writer_.EndArray(); }
    // Bytes that are no UTF-8 are written as \\xHH: names on a disk may be anything.
    void add(const char* key, const std::string& value);
    void add(const char* key, const char* value) { add(key, std::string(value)); }
    void add(const char* key, std::uint64_t number) {
        name(key);
        writer_.Uint64(number);
    }
    void addSeconds(const char* key, double seconds) {
        name(key);
        writer_.Double(seconds);
    }
    void addFlag(const char* key, bool flag) {
        name(key);
        writer_.Bool(flag);
    }
    std::string text() const { return std::string(buffer_.GetString(), buffer_.GetSize()) + "\n"; }

private:
    void name(const char* key) {
        if (key != nullptr)
            writer_.Key(key);
    }
    rapidjson::StringBuffer buffer_;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer_{buffer_};
};

} // namespace package
