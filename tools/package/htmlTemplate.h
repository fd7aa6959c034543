// Pages made of a template: {{name}} stands for a text, and what lies between <!--begin name--> and <!--end
// name--> for as many copies as are made of it.
#pragma once

#include <string>
#include <vector>

namespace package {

class HtmlTemplate {
public:
    explicit HtmlTemplate(std::string text) : text_(std::move(text)) {}

    // The part of that name, to be filled in and added by fill(). Throws std::logic_error when there is none.
    HtmlTemplate part(const std::string& name) const;
    // Puts the text, which may hold anything, in the place of a name; or these copies in the place of a part.
    void set(const std::string& name, const std::string& text);
    void fill(const std::string& part, const std::vector<HtmlTemplate>& copies);

    const std::string& text() const { return text_; }

private:
    std::string text_;
};

std::string htmlEscaped(const std::string& text);

} // namespace package
