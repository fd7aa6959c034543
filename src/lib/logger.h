#pragma once

#include "functs.h"

#include <mutex>
#include <string>

/**
 * The updater's log. Lines collect in a staging file, "/tmp/" + file name; only the destructor appends that
 * to the persistent log, directory + file name, and rotates it when it has grown over its limit. A staging
 * file left by a run that died is carried over by the next run's save.
 *
 * Any thread may call log_item: each line is one append to the file. The destructor runs when the other
 * threads have ended.
 */
class logger {
public:
    enum LOG_TYPE { LOG_ERROR = 0, LOG_WARNING = 1, LOG_NOTICE = 2 };

    /**
     * `logDir` is a plain prefix and ends with "/"; `maxSize` is the persistent log's limit in bytes;
     * `compact` shortens the time stamp and drops the level; without `rotate` an over-size log is deleted,
     * with it five generations are kept, ".0" the newest. No file is touched yet.
     */
    logger(std::string logDir, std::string file, int maxSize, bool compact, bool rotate);
    logger(const logger&) = delete;
    logger& operator=(const logger&) = delete;
    ~logger();

    /** From now on every line also goes to standard output. */
    void debugMode();
    /** True when the staging file could be opened; else the line is lost and standard output says so. */
    bool log_item(std::string msg, LOG_TYPE msgType);
    /** The last text that was logged as an error since forgetLastError(); empty for none. Any thread. */
    std::string lastError() const;
    void forgetLastError();
    /** Local time, "%m-%d-%Y %H:%M:%S %z" or, compact, "%Y%m%d%H%M%S". */
    std::string get_time();
    /** Both look in the log directory. */
    bool logFileExists(std::string file);
    bool checkSize(std::string file);

private:
    void log_file_process();
    void rotateGenerations(const std::string& base);

    std::string logPath;
    std::string logFile;
    mutable std::mutex errorGuard;
    std::string latestError;
    bool lockWrite = false; ///< set while the destructor saves; lines are dropped
    bool debug = false;
    int maxFileSize;
    bool compactFormat;
    bool canRotate;
    functs fnts;
};
