// The part of coreState that reads and writes the record of what is installed.

#include "../lib/durable.h"
#include "../lib/functs.h"
#include "coreState.h"
#include "packageRules.h"
#include "parsers/jsonText.h"
#include "parsers/manifestParser.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

namespace {

const char* const FILE_NAME = "/config/system.manifest";

} // namespace

bool coreState::loadSystemManifest() {
    manifestParser parser(this);
    const std::string text = functs().getFileContents(rootPath + FILE_NAME);
    if (packageRules::isBlank(text)) {
        log->log_item("No system manifest", logger::LOG_ERROR);
        return false;
    }
    if (!jsonText::parse(text, parser)) {
        log->log_item("Could not load system manifest", logger::LOG_ERROR);
        return false;
    }
    return true;
}

bool coreState::saveSystemManifest() {
    ::sync(); // what it calls installed must be on the card before it is
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.StartObject();
    for (const HOST_ITEM& entry : hostItems()) {
        const std::string version = entry.item->swVersion;
        writer.Key(entry.name);
        writer.String(version.data(), static_cast<rapidjson::SizeType>(version.size()));
    }
    writer.EndObject();

    return durable::replaceFile(rootPath + FILE_NAME, text.GetString());
}
