#include "logger.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <unistd.h>

namespace {

const char* const STAGING_DIR = "/tmp/";
constexpr int OLDEST_GENERATION = 4;

const char* label(logger::LOG_TYPE type) {
    switch (type) {
    case logger::LOG_ERROR:
        return "Error";
    case logger::LOG_WARNING:
        return "Warning";
    default:
        return "Notice";
    }
}

/** Copies a log, which is about to be replaced; where the card has no room for the copy, renames it. */
void keepAs(const std::string& from, const std::string& to) {
    functs f;
    f.copyFile(from, to, false, false);
    if (f.getFileSize(from) != f.getFileSize(to)) {
        std::rename(from.c_str(), to.c_str());
    }
}

} // namespace

logger::logger(std::string logDir, std::string file, int maxSize, bool compact, bool rotate)
    : logPath(logDir), logFile(file), maxFileSize(maxSize), compactFormat(compact), canRotate(rotate) {}

logger::~logger() {
    if (!compactFormat) {
        log_item("Saving Log: " + logFile, LOG_NOTICE);
    }
    log_file_process();
}

void logger::debugMode() {
    debug = true;
}

bool logger::log_item(std::string msg, LOG_TYPE msgType) {
    if (lockWrite) {
        return false;
    }
    if (msgType == LOG_ERROR) {
        const std::lock_guard lock(errorGuard);
        latestError = msg;
    }
    std::string line = get_time();
    if (!compactFormat) {
        line += std::string(" [") + label(msgType) + "]";
    }
    line += ": " + msg;
    if (debug) {
        std::cout << line + "\n" << std::flush; // whole: other threads write, too
    }
    const auto write = [&] { return fnts.writeFileContents(STAGING_DIR + logFile, line + "\r\n", true); };
    if (!write() && !(fnts.makeDir(STAGING_DIR) && write())) {
        std::cout << "Could not open Log File!" << std::endl;
        return false;
    }
    return true;
}

std::string logger::lastError() const {
    const std::lock_guard lock(errorGuard);
    return latestError;
}

void logger::forgetLastError() {
    const std::lock_guard lock(errorGuard);
    latestError.clear();
}

std::string logger::get_time() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 80> text{};
    std::strftime(text.data(), text.size(), compactFormat ? "%Y%m%d%H%M%S" : "%m-%d-%Y %H:%M:%S %z", &local);
    return text.data();
}

bool logger::logFileExists(std::string file) {
    return fnts.isFile(logPath + file);
}

bool logger::checkSize(std::string file) {
    return fnts.getFileSize(logPath + file) > maxFileSize;
}

void logger::log_file_process() {
    lockWrite = true;
    const std::string staging = STAGING_DIR + logFile;
    const std::string base = logPath + logFile;
    const std::int32_t before = fnts.getFileSize(base);
    if (fnts.isFile(staging) && fnts.copyFile(staging, base, false, true)) {
        if (fnts.getFileSize(base) - before == fnts.getFileSize(staging)) {
            fnts.removeFile(staging);
        } else { // a full card, or a line of the updater's next start: all of them wait for its save
            [[maybe_unused]] const int cut = truncate(base.c_str(), before);
        }
    }
    if (checkSize(logFile)) {
        if (canRotate) {
            rotateGenerations(base);
        }
        fnts.removeFile(base);
    }
    lockWrite = false;
}

void logger::rotateGenerations(const std::string& base) {
    const auto generation = [&base](int n) { return base + "." + std::to_string(n); };
    if (fnts.isFile(generation(OLDEST_GENERATION))) {
        fnts.removeFile(generation(OLDEST_GENERATION));
    }
    for (int n = OLDEST_GENERATION; n > 0; --n) {
        if (fnts.isFile(generation(n - 1))) {
            keepAs(generation(n - 1), generation(n));
        }
    }
    keepAs(base, generation(0));
}
