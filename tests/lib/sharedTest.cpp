#include "lib/shared.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>
#include <type_traits>

namespace {

constexpr int ROUNDS = 20000;

/** The same work in two threads at a time. */
void twice(const std::function<void()>& work) {
    std::thread other(work);
    work();
    other.join();
}

TEST(sharedText, ReadsLikeAString) {
    sharedText text, later;
    text = "1.2.3";
    later = std::string("b");
    std::ostringstream shown;
    shown << text << ' ' << text.length() << text[0] << text.at(4) << ' ' << text.substr(2) << ' '
          << text.find('.') << text.find(".", 2) << text.rfind(std::string("1.2"), 0) << ' '
          << text.compare(0, 3, "1.2") << (text.compare("1.3") < 0) << ' ' << text.empty();
    EXPECT_EQ(shown.str(), "1.2.3 513 2.3 130 01 0");
    EXPECT_THROW(text.at(5), std::out_of_range);
    EXPECT_TRUE(text == "1.2.3" && text < "b" && "b" > text && text < later && text != later);
    for (const bool known : {true, false}) {
        EXPECT_EQ(known ? text : "literal", known ? "1.2.3" : "literal");
        EXPECT_EQ(known ? text : std::string(), known ? "1.2.3" : "");
    }
    const char* const first = text.c_str();
    text = "too long for a short string's own place";
    EXPECT_STREQ(first, "1.2.3") << "what was handed out outlives the next text";
}

TEST(sharedText, IsWrittenLikeAString) {
    sharedText text, other;
    text = std::string_view("1");
    text += '.';
    text += "2";
    other = '3';
    text += other;
    EXPECT_EQ('<' + (std::string("(") + other) + std::string(")") + text, "<(3)1.23");
    EXPECT_EQ(other + other + std::string("4") + other, "3343");
    text = *&text;
    text += text;
    EXPECT_EQ(text, "1.231.23") << "with itself";
    other.clear();
    EXPECT_TRUE(other.empty());
}

TEST(sharedText, TwoThreadsLoseNoCharacter) {
    sharedText text;
    twice([&text] {
        for (int i = 0; i < ROUNDS; ++i) {
            text += i % 2 == 0 ? "ab" : "cd";
            const std::size_t size = text.size();
            EXPECT_LE(size, text.size());
        }
    });
    const std::string all = text;
    EXPECT_EQ(all.size(), std::size_t{4} * ROUNDS);
    EXPECT_EQ(std::count(all.begin(), all.end(), 'd'), ROUNDS);
}

TEST(shared, IsWrittenLikeThePlainValue) {
    shared<std::uint8_t> number{254};
    EXPECT_EQ(number++, 254);
    EXPECT_EQ(++number, 0) << "past its end";
    EXPECT_EQ(number--, 0);
    EXPECT_EQ(--number, 254);
    EXPECT_EQ(number += 4, 2);
    EXPECT_EQ(number -= 3, 255);
    EXPECT_EQ(number &= 0x0F, 0x0F);
    EXPECT_EQ(number |= 0x40, 0x4F);
    shared<bool> flag{true};
    shared<bool> copy;
    copy = flag = *&flag;
    EXPECT_TRUE(copy);
    static_assert(std::is_same_v<decltype(flag ? flag : true), bool>);
    static_assert(std::is_same_v<decltype(true ? number : 0), int>);
}

TEST(shared, TwoThreadsLoseNoStep) {
    shared<std::uint32_t> count;
    twice([&count] {
        for (int i = 0; i < ROUNDS; ++i) {
            ++count;
            count += 2;
        }
    });
    EXPECT_EQ(count, 6U * ROUNDS);
}

} // namespace
