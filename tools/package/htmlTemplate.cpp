#include "htmlTemplate.h"

#include <stdexcept>

namespace package {

namespace {

struct Place {
    std::size_t start; // of the opening mark
    std::size_t inner;
    std::size_t innerEnd;
    std::size_t end; // behind the closing mark
};

Place placeOf(const std::string& text, const std::string& name) {
    const std::string opening = "<!--begin " + name + "-->";
    const std::string closing = "<!--end " + name + "-->";
    const std::size_t start = text.find(opening);
    const std::size_t end = text.find(closing);
    if (start == text.npos || end == text.npos)
        throw std::logic_error("the template has no part " + name);
    return {start, start + opening.size(), end, end + closing.size()};
}

} // namespace

std::string htmlEscaped(const std::string& text) {
    std::string escaped;
    for (const char each : text) {
        const auto code = static_cast<unsigned char>(each);
        if (each == '<' || each == '>' || each == '&' || each == '"' || each == '{' || code < ' ')
            escaped += code < ' ' ? " " : "&#" + std::to_string(code) + ";";
        else
            escaped += each;
    }
    return escaped;
}

HtmlTemplate HtmlTemplate::part(const std::string& name) const {
    const Place place = placeOf(text_, name);
    return HtmlTemplate(text_.substr(place.inner, place.innerEnd - place.inner));
}

void HtmlTemplate::set(const std::string& name, const std::string& text) {
    const std::string mark = "{{" + name + "}}";
    const std::string escaped = htmlEscaped(text);
    for (std::size_t at = text_.find(mark); at != text_.npos; at = text_.find(mark, at + escaped.size()))
        text_.replace(at, mark.size(), escaped);
}

void HtmlTemplate::fill(const std::string& part, const std::vector<HtmlTemplate>& copies) {
    std::string all;
    for (const HtmlTemplate& each : copies)
        all += each.text_;
    const Place place = placeOf(text_, part);
    text_.replace(place.start, place.end - place.start, all);
}

} // namespace package
