#include "updateParser.h"

#include "../packageRules.h"

bool updateParser::Default() {
    cur.hasKey = false;
    return true;
}

bool updateParser::Key(const char* text, unsigned length, bool) {
    cur.key.assign(text, length);
    cur.hasKey = true;
    cur.index = 0;
    return true;
}

bool updateParser::StartObject() {
    if (cur.key.size() > 1) {
        cur.item = cur.key;
    }
    cur.index = 0;
    return true;
}

bool updateParser::StartArray() {
    cur.index = 0;
    return true;
}

/** Empty for a name that nothing has. */
updateParser::LISTS updateParser::listsOfItem() const {
    LISTS lists;
    for (const coreState::HOST_ITEM& host : sys->hostItems()) {
        if (cur.item == host.name) {
            lists.push_back(host.item);
        }
    }
    for (const modules::ROW& row : modules::VISITED) {
        if (cur.item == row.item) {
            lists.push_back(&sys->module(row).base);
        }
    }
    return lists;
}

bool updateParser::String(const char* text, unsigned length, bool) {
    const std::string given(text, length);
    const LISTS lists = listsOfItem();
    if (!lists.empty() && packageRules::isTooLong(given)) {
        return false;
    }
    if (cur.item == packageRules::FILE_DIGESTS) {
        sys->fileDigests[cur.key] = given;
    } else if (cur.key == "f") {
        cur.citem.item = given;
        for (coreState::BASE_ITEM* list : lists) {
            list->update.items.push_back(cur.citem);
        }
    } else if (cur.key == "v") {
        setVersion(lists, given);
    }
    return Default();
}

/** The version of the file at the same position; one without a file is ignored. */
void updateParser::setVersion(const LISTS& lists, const std::string& version) {
    if (lists.empty() || cur.index >= lists.front()->update.items.size()) {
        return;
    }
    for (coreState::BASE_ITEM* list : lists) {
        list->update.items[cur.index].version = version;
    }
    ++cur.index;
}
