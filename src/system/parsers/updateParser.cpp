#include "updateParser.h"

#include "../packageRules.h"

updateParser::updateParser(coreState* core)
    : sys(core),
      itemNames{
          {"kernel", {&sys->core.kernel}},
          {"rootfs", {&sys->core.rootfs}},
          {"updater", {&sys->core.updater}},
          {"gui", {&sys->core.gui}},
          {"drivers", {&sys->core.drivers}},
          {"ctrl", {&sys->ctrl.base}},
          {"master", {&sys->master.base}},
          {"motor", {&sys->motor.base}},
          {"slave", {&sys->s1.base, &sys->s2.base, &sys->s3.base, &sys->s4.base}},
          {"mf", {&sys->mf1.base, &sys->mf2.base, &sys->mf3.base}},
          {"arts", {&sys->arts.base}},
      } {}

bool updateParser::value() {
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

const updateParser::LISTS* updateParser::listsOfItem() const {
    for (const auto& [name, lists] : itemNames) {
        if (name == cur.item) {
            return &lists;
        }
    }
    return nullptr;
}

bool updateParser::String(const char* text, unsigned length, bool) {
    const LISTS* lists = listsOfItem();
    const std::string given(text, length);
    if (lists != nullptr && packageRules::isTooLong(given)) {
        return false;
    }
    if (lists != nullptr && cur.key == "f") {
        cur.citem.item = given;
        for (coreState::BASE_ITEM* list : *lists) {
            list->update.items.push_back(cur.citem);
        }
    } else if (lists != nullptr && cur.key == "v") {
        setVersion(*lists, given);
    }
    return value();
}

/** The version of the file at the same position; one without a file is ignored. */
void updateParser::setVersion(const LISTS& lists, const std::string& version) {
    if (cur.index >= lists.front()->update.items.size()) {
        return;
    }
    for (coreState::BASE_ITEM* list : lists) {
        list->update.items[cur.index].version = version;
    }
    ++cur.index;
}
