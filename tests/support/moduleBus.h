// A bus with one module, and the panel's side of it.
#pragma once

#include "campaigns/virtualBus.h"
#include "sim/text.h"

#include <chrono>
#include <string>

struct Bus {
    static constexpr unsigned BAUD = 115200;
    static constexpr std::chrono::microseconds OVERHEAD{80}; // of the panel, for each request

    explicit Bus(const std::string& line) : carrier(settings(line)), host(carrier, OVERHEAD) {}
    static VirtualBus::Settings settings(const std::string& line) {
        VirtualBus::Settings made;
        made.modules = {sim::parseModule(sim::words(line))};
        made.baud = BAUD;
        return made;
    }
    double seconds() const { return std::chrono::duration<double>(carrier.now() - start).count(); }

    VirtualBus carrier;
    VirtualHost host;
    const VirtualBus::clock::time_point start = carrier.now();
};
