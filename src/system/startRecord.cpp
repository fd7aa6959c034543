#include "startRecord.h"

#include "../lib/durable.h"
#include "../lib/fileHash.h"
#include "../lib/functs.h"
#include "../lib/plainFile.h"

#include <mutex>
#include <sstream>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

const std::string FILE_NAME = startRecord::FOLDER + "/record";
constexpr const char* FIRST_LINE = "keldra-start 1";
constexpr const char* LAST_LINE = "end"; // a file without it is damaged

using PROGRAM = startRecord::PROGRAM;

/** The programs of a record under their keys. */
template <class RECORD>
auto programsOf(RECORD& record) {
    return std::vector{std::pair{"updater", &record.updater}, std::pair{"coming", &record.coming},
                       std::pair{"former", &record.former}, std::pair{"refused", &record.refused}};
}

std::string textOf(const PROGRAM& program) {
    return std::to_string(program.size) + " " + program.digest + " " + program.version;
}

PROGRAM programIn(const std::string& text) {
    std::istringstream in(text);
    PROGRAM program;
    in >> program.size >> program.digest >> std::ws;
    std::getline(in, program.version);
    return program;
}

/** Nothing in it may begin a line. */
std::string inOneLine(std::string text) {
    for (char& c : text) {
        c = c == '\n' || c == '\r' ? ' ' : c;
    }
    return text;
}

} // namespace

startRecord startRecord::load() {
    startRecord record;
    std::istringstream lines(functs().getFileContents(FILE_NAME));
    std::string line;
    std::getline(lines, line);
    const bool begins = line == FIRST_LINE;
    while (begins && std::getline(lines, line) && line != LAST_LINE) {
        const std::size_t blank = line.find(' ');
        record.take(line.substr(0, blank), blank == std::string::npos ? "" : line.substr(blank + 1));
    }
    return line == LAST_LINE ? record : startRecord();
}

void startRecord::take(const std::string& key, const std::string& value) {
    for (const auto& [name, program] : programsOf(*this)) {
        if (key == name) {
            *program = programIn(value);
        }
    }
    if (key == "item") {
        item = value;
    } else if (key == "trial") {
        trial = std::atoi(value.c_str());
    } else if (key == "underway") {
        underway = value == "forced" ? UNDERWAY::FORCED : UNDERWAY::UPDATE;
    } else if (key == "kernel") {
        tornKernel = true;
    } else if (key == "back") {
        isBack = true;
    } else if (key == "decided") {
        decided = value;
    }
}

std::string startRecord::text() const {
    std::string lines = std::string(FIRST_LINE) + '\n';
    const auto add = [&lines](const std::string& key, const std::string& value, bool given) {
        lines += given ? inOneLine(key + " " + value) + '\n' : "";
    };
    for (const auto& [name, program] : programsOf(*this)) {
        add(name, textOf(*program), program->isKnown());
    }
    add("item", item, coming.isKnown());
    add("trial", std::to_string(trial), trial != PROVEN);
    add("underway", underway == UNDERWAY::FORCED ? "forced" : "update", underway != UNDERWAY::NOTHING);
    add("kernel", "torn", tornKernel);
    add("back", "yes", isBack);
    add("decided", decided, !decided.empty());
    return lines + LAST_LINE + '\n';
}

bool startRecord::save() const {
    return isKept() && durable::replaceFile(FILE_NAME, text());
}

bool startRecord::change(const std::function<void(startRecord&)>& how) {
    static std::mutex guard;
    if (!isKept()) {
        return true;
    }
    const std::lock_guard lock(guard);
    startRecord record = load();
    const std::string before = record.text();
    how(record);
    return record.text() == before || record.save();
}

void startRecord::noteUnderway(UNDERWAY underway) {
    change([underway](startRecord& record) { record.underway = underway; });
}

bool startRecord::isKept() {
    return functs().isDirectory(FOLDER);
}

PROGRAM startRecord::programAt(const std::string& path) {
    return access(path.c_str(), X_OK) == 0 ? contentOf(path) : PROGRAM();
}

PROGRAM startRecord::contentOf(const std::string& path, const std::function<bool()>& goOn) {
    plainFile file(path, "/");
    const std::uint64_t size = file.size();
    const auto digest = size > 0 ? fileHash::sha256(file, goOn) : std::nullopt;
    return digest ? PROGRAM{size, *digest, ""} : PROGRAM();
}
