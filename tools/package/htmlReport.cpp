#include "htmlReport.h"

#include "htmlTemplate.h"
#include "lib/format.h"
#include "report.h"
#include "reportTemplate.h"

#include <algorithm>
#include <sstream>

namespace package {

namespace {

using Parts = std::vector<HtmlTemplate>;

Parts entriesOf(const ReportContent& content, const HtmlTemplate& page) {
    Parts rows;
    for (const EntryInfo& each : content.info.entries) {
        HtmlTemplate row = page.part("entry");
        Parts files;
        for (const FileInfo& file : each.files) {
            HtmlTemplate line = row.part("file");
            line.set("name", file.name);
            line.set("size", shownSize(file.size));
            line.set("digest", file.digest);
            files.push_back(line);
        }
        row.fill("file", files);
        row.set("item", each.item + (each.processor != nullptr ? format(" r%zu", each.revision) : ""));
        row.set("version", each.version);
        row.set("file", each.file);
        row.set("count", each.files.size() == 1 ? each.nature : std::to_string(each.files.size()) + " files");
        row.set("size", shownSize(each.size()));
        row.set("processor", each.processor == nullptr
                                 ? ""
                                 : each.processor->name + std::string(each.assumed ? " (assumed)" : ""));
        rows.push_back(row);
    }
    return rows;
}

Parts changesOf(const ReportContent& content, const HtmlTemplate& page) {
    if (content.old == nullptr)
        return {};
    HtmlTemplate changes = page.part("changes");
    Parts lines;
    std::istringstream text(diffText(*content.old, content.info));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(changes.part("change"));
        lines.back().set("line", line);
    }
    changes.fill("change", lines);
    changes.set("old", content.oldTitle);
    return {changes};
}

HtmlTemplate findingOf(const Finding& finding, const std::string& reason, HtmlTemplate part) {
    const bool isError = finding.kind->severity == Severity::Error;
    part.set("severity", !reason.empty() ? "allowed" : isError ? "error" : "warning");
    part.set("text", finding.text);
    part.set("place",
             finding.place.file + (finding.place.line != 0 ? ":" + std::to_string(finding.place.line) : ""));
    part.set("panel", finding.kind->panel);
    part.set("remedy", finding.kind->remedy);
    part.set("id", finding.kind->id);
    part.set("reason", reason);
    return part;
}

Parts findingsOf(const Findings& findings, const HtmlTemplate& page) {
    constexpr std::size_t MOST = 200;
    Parts parts;
    for (const Finding& each : findings.all()) {
        if (parts.size() < MOST)
            parts.push_back(findingOf(each, "", page.part("finding")));
    }
    for (const Allowed& each : findings.allowed())
        parts.push_back(findingOf(each.finding, each.reason, page.part("finding")));
    return parts;
}

const char* classOf(Decision decision) {
    return decision == Decision::Update ? "" : decision == Decision::Fails ? "fails" : "none";
}

std::string textOf(const Step& step, double seconds) {
    const std::string versions = step.decision == Decision::Update
                                     ? ", " + (step.from.empty() ? "unknown" : step.from) + " -> " + step.to
                                     : "";
    return (seconds > 0 ? format("%.1f s, ", seconds) : "") + nameOf(step.decision) + versions +
           (step.reason.empty() ? "" : ": " + step.reason);
}

// From the switch to update mode to the restart of the system.
Parts stepsOf(const ReportContent& content, const HtmlTemplate& page) {
    Parts rows;
    if (content.plan == nullptr)
        return rows;
    const Plan& plan = *content.plan;
    const double all = std::max(plan.bus.seconds(content.baud), 0.001);
    double at = 0;
    const auto add = [&](const std::string& name, const std::string& kind, double taken,
                         const std::string& text) {
        HtmlTemplate row = page.part("step");
        row.set("name", name);
        row.set("class", kind);
        row.set("left", format("%.2f", 100 * at / all));
        row.set("width", format("%.2f", 100 * taken / all));
        row.set("text", text);
        rows.push_back(row);
        at += taken;
    };
    double steps = 0;
    for (const Step& step : plan.steps)
        steps += step.bus.seconds(content.baud);
    const double start = std::max(all - steps, 0.0);
    add("Start", "mark", start, format("%.1f s, all modules into update mode", start));
    for (const Step& step : plan.steps) {
        const double taken = step.bus.seconds(content.baud);
        add(step.stop->shown, classOf(step.decision), taken, textOf(step, taken));
    }
    const bool fails =
        std::ranges::any_of(plan.steps, [](const Step& each) { return each.decision == Decision::Fails; });
    add("Halt", "mark", 0, format("after %.1f s", all) + (fails ? ", with the failure shown" : ""));
    return rows;
}

std::string classOf(const FlashPage& page, const FlashMap* old) {
    using enum FlashPage::Use;
    if (page.use == Gap)
        return "gap";
    if (page.use == Erased)
        return "erased";
    return page.use == Skipped ? "" : isChanged(page, old) ? "changed" : "used";
}

HtmlTemplate regionOf(const FlashRegion& region, const FlashMap* old, HtmlTemplate part) {
    constexpr std::size_t MOST = 4096;
    Parts pages;
    for (const FlashPage& page : region.pages) {
        if (pages.size() == MOST)
            break;
        HtmlTemplate square = part.part("page");
        square.set("class", classOf(page, old));
        square.set("page", format("0x%X: %zu bytes", page.address, page.data.size()));
        pages.push_back(square);
    }
    part.fill("page", pages);
    part.set("range",
             format("0x%08X to 0x%08X, pages of %u bytes: %zu of %zu with data, %zu bytes", region.start,
                    region.end - 1, region.pageSize, region.used(), region.pages.size(), region.bytes()));
    return part;
}

Parts imagesOf(const ReportContent& content, const HtmlTemplate& page) {
    Parts images;
    for (const EntryInfo& each : content.info.entries) {
        if (each.processor == nullptr)
            continue;
        const EntryInfo* old =
            content.old != nullptr ? findEntry(*content.old, each.item, each.revision) : nullptr;
        HtmlTemplate image = page.part("image");
        Parts regions;
        for (const FlashRegion& region : each.flash.regions) {
            if (region.used() != 0)
                regions.push_back(
                    regionOf(region, old != nullptr ? &old->flash : nullptr, image.part("region")));
        }
        image.fill("region", regions);
        image.set("title", each.item + format(", hardware revision %zu: ", each.revision) + each.version);
        image.set("text", each.file + " on " + each.processor->name +
                              (each.processor->records ? ", sent record by record" : "") +
                              (each.flash.outside != 0
                                   ? format("; %zu bytes lie outside of its flash", each.flash.outside)
                                   : ""));
        images.push_back(image);
    }
    return images;
}

} // namespace

std::string htmlReport(const ReportContent& content) {
    HtmlTemplate page(REPORT_TEMPLATE);
    const HtmlTemplate whole = page;
    page.fill("entry", entriesOf(content, whole));
    page.fill("changes", changesOf(content, whole));
    page.fill("finding", findingsOf(content.findings, whole));
    page.fill("step", stepsOf(content, whole));
    page.fill("image", imagesOf(content, whole));
    const FileInfo& archive = content.info.archive;
    const bool fine = content.findings.errors() == 0;
    page.set("title", content.title);
    page.set("archive", archive.name.empty()
                            ? "not packed yet"
                            : archive.name + ", " + shownSize(archive.size) + ", SHA-1 " + archive.digest);
    page.set("verdictClass", fine ? "good" : "error");
    page.set("verdict", counts(content.findings));
    page.set("summary",
             content.plan == nullptr
                 ? "There is no plan for a package with such errors."
                 : format("%.1f s on the bus at %u baud; copying to the panel's own card is not in it.",
                          content.plan->bus.seconds(content.baud), content.baud));
    page.set("program", content.program);
    return page.text();
}

} // namespace package
