#pragma once

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

    bool Default(); ///< whatever is no text
    bool String(const char* text, unsigned length, bool copy);
    bool Key(const char* text, unsigned length, bool copy);
    bool StartObject() { return true; }
    bool EndObject(unsigned) { return true; }
    bool StartArray() { return true; }
    bool EndArray(unsigned) { return true; }

private:
    struct {
        std::string key;
        bool hasKey = false;
    } cur;
    coreState* sys; ///< not owned
};
