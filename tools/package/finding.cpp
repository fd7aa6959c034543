#include "finding.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace package {

void Findings::add(const Kind& kind, Place place, std::string text) {
    if (!base_.empty())
        place.file = (std::filesystem::path(base_) / place.file).string();
    findings_.push_back({&kind, std::move(place), std::move(text)});
}

void Findings::allow(const std::vector<Allowance>& allowances) {
    for (const Allowance& each : allowances) {
        const auto isMeant = [&](const Finding& finding) {
            const std::string path = "/" + finding.place.file;
            return finding.kind->id == each.id && (each.file.empty() || path.ends_with("/" + each.file));
        };
        for (const Finding& finding : findings_) {
            if (isMeant(finding))
                allowed_.push_back({finding, each.reason});
        }
        std::erase_if(findings_, isMeant);
    }
}

bool Findings::leavesOut() const {
    return std::ranges::any_of(findings_, [](const Finding& each) { return !each.kind->allowable; });
}

std::size_t Findings::errors() const {
    return static_cast<std::size_t>(
        std::count_if(findings_.begin(), findings_.end(),
                      [](const Finding& each) { return each.kind->severity == Severity::Error; }));
}

} // namespace package
