#include "finding.h"

#include <algorithm>
#include <utility>

namespace package {

void Findings::add(const Kind& kind, Place place, std::string text) {
    findings_.push_back({&kind, std::move(place), std::move(text)});
}

std::size_t Findings::errors() const {
    return static_cast<std::size_t>(
        std::count_if(findings_.begin(), findings_.end(),
                      [](const Finding& each) { return each.kind->severity == Severity::Error; }));
}

} // namespace package
