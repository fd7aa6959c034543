#pragma once

#include <cstdint>
#include <rapidjson/reader.h>
#include <string>

class coreState;

/**
 * Reads the system manifest: a member named for a host item sets that item's installed version, at whatever
 * depth it stands. Everything else is ignored, so any well-formed text is accepted. Main thread.
 */
class manifestParser : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, manifestParser> {
public:
    explicit manifestParser(coreState* core) : sys(core) {}

    bool Null() { return value(); }
    bool Bool(bool) { return value(); }
    bool Int(int) { return value(); }
    bool Uint(unsigned) { return value(); }
    bool Int64(std::int64_t) { return value(); }
    bool Uint64(std::uint64_t) { return value(); }
    bool Double(double) { return value(); }
    bool String(const char* text, unsigned length, bool copy);
    bool Key(const char* text, unsigned length, bool copy);
    bool StartObject() { return true; }
    bool EndObject(unsigned) { return true; }
    bool StartArray() { return true; }
    bool EndArray(unsigned) { return true; }

private:
    bool value();

    struct {
        std::string key;
        bool hasKey = false;
    } cur;
    coreState* sys; ///< not owned
};
