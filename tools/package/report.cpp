#include "report.h"

#include "jsonWriter.h"
#include "lib/format.h"

namespace package {

const char* nameOf(Decision decision) {
    switch (decision) {
    case Decision::Update:
        return "update";
    case Decision::UpToDate:
        return "up-to-date";
    case Decision::NoImage:
        return "no image";
    case Decision::NotFound:
        return "not found";
    case Decision::NotOffered:
        return "nothing offered";
    case Decision::Fails:
        return "FAILS";
    case Decision::NotReached:
        return "not reached";
    }
    return "";
}

namespace {

std::string explain(const Step& step) {
    switch (step.decision) {
    case Decision::Update:
        return printable((step.from.empty() ? "unknown" : step.from) + " -> " + step.to + "  " + step.file) +
               (step.assumed != nullptr ? std::string("  (taken for ") + step.assumed->name + ")" : "");
    case Decision::UpToDate:
        return printable(step.from);
    case Decision::NoImage:
        return (step.offered ? format("for hardware revision %u", step.revision) : "in the package") +
               "; the panel says \"up-to-date\"";
    case Decision::Fails:
        return printable(step.reason);
    default:
        return "";
    }
}

} // namespace

std::string planText(const Plan& plan, unsigned baud) {
    std::string text = format("%-17s %-15s %9s %6s %6s %8s %8s  %s\n", "item", "decision", "bytes", "pages",
                              "erases", "messages", "seconds", "versions");
    for (const Step& step : plan.steps) {
        const std::string line =
            format("%-17s %-15s %9llu %6u %6u %8u %8.2f  %s", step.stop->shown, nameOf(step.decision),
                   static_cast<unsigned long long>(step.bytes), step.bus.pages, step.bus.erases,
                   step.bus.messages, step.bus.seconds(baud), explain(step).c_str());
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    if (plan.restarts)
        text += "The updater replaces itself and starts anew before it goes on with the rest.\n";
    return text + format("On the bus: %u pages, %u erases, %u messages; %.1f s at %u baud\n", plan.bus.pages,
                         plan.bus.erases, plan.bus.messages, plan.bus.seconds(baud), baud);
}

std::string planJson(const Plan& plan, const Findings& findings, unsigned baud) {
    JsonWriter json;
    const auto bus = [&](const BusCost& cost) {
        json.add("pages", std::uint64_t{cost.pages});
        json.add("erases", std::uint64_t{cost.erases});
        json.add("messages", std::uint64_t{cost.messages});
        json.add("sentBytes", std::uint64_t{cost.dataBytes});
        json.addSeconds("seconds", cost.seconds(baud));
    };
    json.open();
    json.add("errors", std::uint64_t{findings.errors()});
    json.add("warnings", std::uint64_t{findings.warnings()});
    json.add("baud", std::uint64_t{baud});
    json.openList("steps");
    for (const Step& step : plan.steps) {
        json.open();
        json.add("item", std::string(step.stop->shown));
        json.add("decision", std::string(nameOf(step.decision)));
        json.add("from", step.from);
        json.add("to", step.to);
        json.add("file", step.file);
        json.add("reason", step.reason);
        json.add("assumedProcessor", std::string(step.assumed != nullptr ? step.assumed->name : ""));
        json.add("revision", std::uint64_t{step.revision});
        json.add("bytes", step.bytes);
        bus(step.bus);
        json.close();
    }
    json.closeList();
    json.addFlag("restarts", plan.restarts);
    json.open("total");
    bus(plan.bus);
    json.close();
    json.close();
    return json.text();
}

} // namespace package
