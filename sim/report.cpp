#include "report.h"

#include "hexFile.h"

#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace sim {

namespace {

const char* yesNo(bool value) {
    return value ? "yes" : "no";
}

bool isWell(const Module& module) {
    return module.log().entries().empty() && !module.bootloader().isOpen();
}

void writeEntries(std::ostream& stream, const ProtocolLog& log, const Trace& trace) {
    for (const ProtocolLog::Entry& entry : log.entries())
        stream << "  protocol " << trace.stamp(entry.when) << ' ' << entry.text << '\n';
}

void writeModule(std::ostream& stream, const Module& module, const Trace& trace) {
    const ModuleConfig& config = module.config();
    stream << "module name=" << config.name << " address=" << unsigned{config.address}
           << " kind=" << config.processor->name << " version=" << module.version().text()
           << " state=" << module.stateName() << " written=" << module.bootloader().written()
           << " erases=" << module.bootloader().erases()
           << " open-page=" << yesNo(module.bootloader().isOpen())
           << " breaches=" << module.log().entries().size() << " well=" << yesNo(isWell(module)) << '\n';
    writeEntries(stream, module.log(), trace);
}

void writeAll(std::ostream& stream, const BusProcessor& bus, const FaultScript& faults, const Trace& trace) {
    bool well = bus.log().entries().empty();
    for (const auto& module : bus.modules()) {
        writeModule(stream, *module, trace);
        well = well && isWell(*module);
    }
    const BusProcessor::Counters& counters = bus.counters();
    stream << "bus received=" << counters.received << " damaged=" << counters.damaged
           << " sent=" << counters.sent << " breaches=" << bus.log().entries().size()
           << " well=" << yesNo(bus.log().entries().empty()) << '\n';
    writeEntries(stream, bus.log(), trace);
    for (const Fault& fault : faults.faults())
        stream << "injected count=" << fault.injected() << ' ' << fault.text() << '\n';
    stream << "well=" << yesNo(well) << std::endl;
}

} // namespace

void writeReport(const std::string& file, const BusProcessor& bus, const FaultScript& faults,
                 const Trace& trace) {
    if (file == "-") {
        writeAll(std::cout, bus, faults, trace);
        return;
    }
    const std::string fresh = file + ".new";
    std::ofstream stream(fresh);
    writeAll(stream, bus, faults, trace);
    stream.close();
    if (!stream)
        throw std::runtime_error("cannot write the report " + fresh);
    std::filesystem::rename(fresh, file);
}

void writeDumps(const std::string& directory, const BusProcessor& bus) {
    std::filesystem::create_directories(directory);
    for (const auto& module : bus.modules()) {
        const ModuleConfig& config = module->config();
        if (config.present)
            writeHexFile(directory + "/" + config.name + ".hex", config.processor->packsInstructions(),
                         module->flash());
    }
}

} // namespace sim
