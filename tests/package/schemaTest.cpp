#include "files.h"
#include "items.h"
#include "json.h"
#include "processors.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace package {
namespace {

JsonValue schema(const std::string& name) {
    JsonValue root;
    EXPECT_EQ(parseJson(readFile(SCHEMAS + name), root).text, "");
    return root;
}

const JsonValue& at(const JsonValue& value, const std::vector<std::string>& path) {
    const JsonValue* found = &value;
    for (const std::string& key : path)
        if (found = found->find(key); found == nullptr)
            throw std::runtime_error("no \"" + key + "\"");
    return *found;
}

std::vector<std::string> textsIn(const JsonValue& list) {
    std::vector<std::string> texts;
    for (const JsonValue& each : list.elements)
        texts.push_back(each.text);
    return texts;
}

// Editors go by the schemas: they must not mark what the program takes.
TEST(schemaTest, KnowsWhatTheProgramKnows) {
    const JsonValue description = schema("package.schema.json");
    std::vector<std::string> items;
    for (const auto& [key, value] : at(description, {"properties"}).members)
        if (key.text[0] != '$' && key.text != "allow")
            items.push_back(key.text);
    std::vector<std::string> known = itemNames();
    std::ranges::sort(items);
    std::ranges::sort(known);
    EXPECT_EQ(items, known);
    EXPECT_EQ(textsIn(at(description, {"$defs", "image", "properties", "processor", "enum"})),
              processorNames());
    EXPECT_EQ(textsIn(at(schema("inventory.schema.json"), {"$defs", "module", "properties", "kind", "enum"})),
              processorNames());
}

} // namespace
} // namespace package
