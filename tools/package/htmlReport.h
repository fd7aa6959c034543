// A package on one page, for the one who releases it.
#pragma once

#include "packageInfo.h"
#include "plan.h"

#include <string>

namespace package {

struct ReportContent {
    std::string title;
    const PackageInfo& info;
    const Findings& findings;
    const Plan* plan; // null when there is none for such a package
    unsigned baud;
    const PackageInfo* old; // what it is compared with, or null
    std::string oldTitle;
    std::string program; // that made the page
};

// Self-contained HTML: no network, no script.
std::string htmlReport(const ReportContent& content);

} // namespace package
