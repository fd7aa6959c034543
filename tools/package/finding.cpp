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

std::size_t Findings::errors() const {
    return static_cast<std::size_t>(
        std::count_if(findings_.begin(), findings_.end(),
                      [](const Finding& each) { return each.kind->severity == Severity::Error; }));
}

} // namespace package
