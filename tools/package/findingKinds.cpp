#include "findingKinds.h"

#include "commandLine/suggest.h"

#include <algorithm>

namespace package::kinds {

std::vector<std::string> names() {
    std::vector<std::string> all;
    for (const Kind* each : ALL)
        all.push_back(each->id);
    return all;
}

std::string objectionToAllowing(const std::string& name) {
    const auto kind = std::ranges::find(ALL, name, &Kind::id);
    if (kind == std::end(ALL))
        return "there is no finding \"" + name + "\"" + commandLine::suggest(name, names());
    return (*kind)->allowable ? "" : "\"" + name + "\" can't be allowed: something would be missing";
}

} // namespace package::kinds
