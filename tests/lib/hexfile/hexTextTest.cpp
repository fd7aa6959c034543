#include "lib/hexfile/hexText.h"

#include "support/panel.h"

#include <sstream>
#include <vector>

namespace {

std::uint32_t byStream(const std::string& text) {
    std::istringstream stream(text);
    std::uint32_t value = 0;
    stream >> std::hex >> value;
    return value;
}

Texts linesOf(const std::string& text) {
    put("/tmp/image.hex", text);
    Texts lines;
    EXPECT_TRUE(
        hexText::forEachLine("/tmp/image.hex", [&](std::string_view line) { lines.emplace_back(line); }));
    return lines;
}

TEST(hexText, ConvertsAsAStreamDoes) {
    std::vector<std::string> texts{"",          "12345678", "ffffffff", "123456789",
                                   "000000001", "0x1f",     "-0x2",     "00x1"};
    for (int first = 0; first < 256; ++first) {
        texts.emplace_back(1, static_cast<char>(first));
        for (int second = 0; second < 256; ++second)
            texts.push_back({static_cast<char>(first), static_cast<char>(second)});
    }
    const std::string alphabet = "09afAFxX+- \t\r.,gG";
    for (std::size_t i = 0; i < alphabet.size() * alphabet.size() * alphabet.size(); ++i) {
        const std::size_t n = alphabet.size();
        texts.push_back({alphabet[i % n], alphabet[i / n % n], alphabet[i / n / n], '1'});
    }
    for (const std::string& text : texts) {
        ASSERT_EQ(hexText::convertHex(text), byStream(text)) << testing::PrintToString(text);
        ASSERT_EQ(hexText::byteAt("::" + text, 2), byStream(text.substr(0, 2)) & 0xFF)
            << testing::PrintToString(text);
    }
}

TEST(hexText, SplitsLinesAcrossReadBlocks) {
    EXPECT_EQ(linesOf(""), Texts{});
    EXPECT_EQ(linesOf("a\r\n\nb"), (Texts{"a\r", "", "b"}));
    EXPECT_EQ(linesOf(std::string("a\0b\n", 4)), Texts{std::string("a\0b", 3)});
    for (const std::size_t length : {65534U, 65535U, 65536U, 65537U, 1000000U}) {
        const std::string longLine(length, 'x');
        std::string text = longLine;
        text.append("\n").append(longLine).append("\nend\n");
        EXPECT_TRUE(linesOf(text) == (Texts{longLine, longLine, "end"}));
    }
}

} // namespace
