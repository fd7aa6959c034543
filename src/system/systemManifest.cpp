// The part of updateCore that reads and writes the record of what is installed.

#include "../lib/functs.h"
#include "parsers/jsonText.h"
#include "parsers/manifestParser.h"
#include "updateCore.h"

#include <cstdio>
#include <fcntl.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

namespace {

const char* const FILE_NAME = "/config/system.manifest";

/** Forces what was written to `path`, a file or a directory, onto the card. */
bool flush(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool flushed = fsync(fd) == 0;
    close(fd);
    return flushed;
}

} // namespace

bool updateCore::loadSystemManifest() {
    manifestParser parser(this);
    const std::string text = functs().getFileContents(rootPath + FILE_NAME);
    if (jsonText::isBlank(text)) {
        log->log_item("No system manifest", logger::LOG_ERROR);
        return false;
    }
    if (!jsonText::parse(text, parser)) {
        log->log_item("Could not load system manifest", logger::LOG_ERROR);
        return false;
    }
    return true;
}

bool updateCore::saveSystemManifest() {
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

    return replaceFile(rootPath + FILE_NAME, text.GetString());
}

/** A loss of power leaves the old content or the new one; a full card, the old one. */
bool updateCore::replaceFile(const std::string& path, const std::string& text) {
    functs f;
    const std::string temporary = path + ".new";
    if (!f.writeFileContents(temporary, text) || !flush(temporary) ||
        f.getFileSize(temporary) != static_cast<std::int32_t>(text.size())) {
        f.removeFile(temporary);
        return false;
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        f.removeFile(temporary);
        return false;
    }
    return flush(rootPath + "/config");
}
