#include "manifestParser.h"

#include "../coreState.h"

bool manifestParser::Default() {
    cur.hasKey = false;
    return true;
}

bool manifestParser::Key(const char* text, unsigned length, bool) {
    cur.key.assign(text, length);
    cur.hasKey = true;
    return true;
}

bool manifestParser::String(const char* text, unsigned length, bool) {
    for (const coreState::HOST_ITEM& entry : sys->hostItems()) {
        if (cur.key == entry.name) {
            entry.item->swVersion = std::string(text, length);
        }
    }
    return Default();
}
