#pragma once

#include "../coreState.h"

#include <cstdint>
#include <rapidjson/reader.h>
#include <string>
#include <vector>

/**
 * Reads a package's update manifest and appends one entry per file to the lists of the items that it names:
 * docs/package.md has the layout. Accepts every well-formed text whose items have no text that is too
 * long (packageRules); names and values that it does not know are walked through. Loader thread.
 */
class updateParser : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, updateParser> {
public:
    explicit updateParser(coreState* core) : sys(core) {}

    bool Default(); ///< whatever is no text
    bool String(const char* text, unsigned length, bool copy);
    bool Key(const char* text, unsigned length, bool copy);
    bool StartObject();
    bool EndObject(unsigned) { return true; }
    bool StartArray();
    bool EndArray(unsigned) { return true; }

private:
    using LISTS = std::vector<coreState::BASE_ITEM*>; ///< filled alike

    LISTS listsOfItem() const;
    void setVersion(const LISTS& lists, const std::string& version);

    struct {
        std::string key;
        std::string item;       ///< the last key of more than one character that opened an object
        bool hasKey = false;    ///< set by a key, cleared by a value
        std::uint8_t index = 0; ///< entry that the next version belongs to
        [[maybe_unused]] bool inArray = false;
        coreState::UPDATE_ITEM citem;
    } cur;
    coreState* sys; ///< not owned
};
