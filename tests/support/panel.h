#pragma once

#include "bus.h"
#include "sim/panel/bed.h"
#include "system/ProcBusThread.h"
#include "system/updateCore.h"
#include "system/updateCoreLoader.h"

#include <QObject>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

using panel::contents;
using panel::put;
using panel::shell;
using panel::succeeds;
using Texts = std::vector<std::string>;

/** Lets the main thread's events run until the condition holds; false after half a minute without it. */
bool awaitThat(const std::function<bool()>& condition);
/** True when one of the texts contains `part`. */
bool holds(const Texts& texts, const std::string& part);

/**
 * A freshly installed panel: its files, a bus on its serial port, an empty stick, and its core once
 * start()ed. Needs the private file system that tests/in-sandbox gives.
 */
class Panel : public testing::Test {
protected:
    Panel();
    ~Panel() override;

    /** What the configuration has beside the serial port and the place of the files. */
    std::string configuration = "log_max_size = 100000\n";

    void configure();
    /** Configures; then the core as the program makes it, whose signals are recorded in `events`. */
    void start();
    /** Makes the core's bus answer, and tells it to load what is on the stick; the mode byte it ends with. */
    int load();
    /** Starts an update run and waits for its thread to end. */
    void update();
    /** Waits until the core's threads but the link's have ended and all their signals have arrived. */
    void settle();

    /** Puts a file into the tree that packOntoStick() packs. */
    void pack(const std::string& name, const std::string& text, unsigned mode = 0644);
    /** Packs the tree with this manifest; `spoil` is a shell command that is run in the tree before. */
    void packOntoStick(const std::string& manifest, const std::string& spoil = ":");
    /** Puts a file into the unpacked package. */
    void unpacked(const std::string& name, const std::string& text, unsigned mode = 0644);
    /** A shell script in the place of one of the panel's programs. */
    void standIn(const std::string& program, const std::string& script);
    void endStandIns();

    /** The lines of the log without their time: "[Error]: text". */
    static Texts logged();

    Bus bus;
    std::unique_ptr<updateCore> core;
    /** What the core told the window, in order: texts, "tick 6", "done 1", "loaded 0", "reboot". */
    Texts events;
    Texts shown; ///< the texts among them

private:
    QObject window_; ///< receives the signals on the main thread
    Texts standIns_;
};
