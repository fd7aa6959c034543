#include "json.h"

#include <algorithm>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>
#include <utility>

namespace package {

namespace {

constexpr std::size_t DEEPEST = 32;

// Finds the lines of ascending offsets: each is counted from the one before.
class Lines {
public:
    explicit Lines(const std::string& text) : text_(text) {}

    JsonPosition at(std::size_t offset) {
        for (; counted_ < std::min(offset, text_.size()); ++counted_) {
            if (text_[counted_] == '\n') {
                ++line_;
                lineStart_ = counted_ + 1;
            }
        }
        return {line_, static_cast<unsigned>(offset - lineStart_) + 1};
    }

private:
    const std::string& text_;
    std::size_t counted_ = 0;
    std::size_t lineStart_ = 0;
    unsigned line_ = 1;
};

// The reader works on a copy of a plain StringStream while it reads a token; of this one it does not, so that
// Tell() is where it has got to.
struct Source : rapidjson::StringStream {
    using rapidjson::StringStream::GenericStringStream;
};

// Builds the tree. The reader reports a token once it has read it, so each start is looked for backwards.
class Builder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Builder> {
public:
    Builder(const std::string& text, const Source& stream, JsonValue& root)
        : text_(text), lines_(text), stream_(stream), root_(root) {}

    bool Default() {
        const std::size_t start = startOfWord();
        return put(JsonValue::Type::Other, start, text_.substr(start, stream_.Tell() - start));
    }
    bool String(const char* text, unsigned length, bool) {
        return put(JsonValue::Type::Text, startOfString(), std::string(text, length));
    }
    bool Key(const char* text, unsigned length, bool) {
        JsonValue key;
        key.type = JsonValue::Type::Text;
        key.position = lines_.at(startOfString());
        key.text.assign(text, length);
        open_.back()->members.push_back({std::move(key), {}});
        return true;
    }
    bool StartObject() { return open(JsonValue::Type::Object); }
    bool StartArray() { return open(JsonValue::Type::Array); }
    bool EndObject(unsigned) { return close(); }
    bool EndArray(unsigned) { return close(); }

private:
    JsonValue& slot() {
        if (open_.empty())
            return root_;
        JsonValue& parent = *open_.back();
        return parent.isObject() ? parent.members.back().value : parent.elements.emplace_back();
    }
    bool put(JsonValue::Type type, std::size_t offset, std::string text = {}) {
        JsonValue& value = slot();
        value.type = type;
        value.position = lines_.at(offset);
        value.text = std::move(text);
        return true;
    }
    bool open(JsonValue::Type type) {
        if (open_.size() == DEEPEST)
            return false;
        JsonValue& value = slot();
        value.type = type;
        value.position = lines_.at(stream_.Tell());
        open_.push_back(&value);
        return true;
    }
    bool close() {
        open_.pop_back();
        return true;
    }
    std::size_t startOfWord() const {
        const std::size_t end = stream_.Tell() - 1;
        const std::size_t before = text_.find_last_of(" \t\r\n,:[{", end);
        return before == std::string::npos ? 0 : before + 1;
    }
    std::size_t startOfString() const {
        std::size_t quote = text_.rfind('"', stream_.Tell() - 2);
        while (quote > 0 && text_[quote - 1] == '\\')
            quote = text_.rfind('"', quote - 1);
        return quote;
    }

    const std::string& text_;
    Lines lines_;
    const Source& stream_;
    JsonValue& root_;
    std::vector<JsonValue*> open_; // an element stays where it is while it is open: its parent does not grow
};

} // namespace

const JsonValue* JsonValue::find(const std::string& key) const {
    const auto found = std::find_if(members.begin(), members.end(),
                                    [&](const JsonMember& each) { return each.key.text == key; });
    return found == members.end() ? nullptr : &found->value;
}

namespace {

// What people do most, in their words.
std::string explain(const std::string& text, const rapidjson::ParseResult& result) {
    const std::size_t at = result.Offset();
    const std::size_t before = at == 0 ? std::string::npos : text.find_last_not_of(" \t\r\n", at - 1);
    const bool closes = at < text.size() && (text[at] == '}' || text[at] == ']');
    if (closes && before != std::string::npos && text[before] == ',')
        return "a comma before the closing " + std::string(1, text[at]);
    if (result.Code() == rapidjson::kParseErrorTermination)
        return "nested too deeply";
    return rapidjson::GetParseError_En(result.Code());
}

} // namespace

JsonError parseJson(const std::string& text, JsonValue& root) {
    const std::size_t nul = text.find('\0');
    if (text.starts_with("\xEF\xBB\xBF"))
        return {"a byte order mark before the text; save it as UTF-8 without one", {1, 1}};
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF"))
        return {"UTF-16; save it as UTF-8", {1, 1}};
    if (nul != std::string::npos)
        return {"a NUL character", Lines(text).at(nul)};
    Source stream(text.c_str());
    rapidjson::Reader reader;
    Builder builder(text, stream, root);
    const rapidjson::ParseResult result = reader.Parse<rapidjson::kParseIterativeFlag>(stream, builder);
    if (!result.IsError())
        return {};
    return {explain(text, result), Lines(text).at(result.Offset())};
}

} // namespace package
