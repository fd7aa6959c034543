#include "lib/shared.h"

#include "system/coreState.h"

#include <QString>
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

std::size_t lengthOf(const std::string& text) {
    return text.size();
}

TEST(sharedText, ReadsLikeAString) {
    coreState::BASE_ITEM item;
    const sharedText& text = item.swVersion;
    item.swVersion = "1.2.3";
    const std::string plain = text;
    const std::string direct(text);
    std::string assigned;
    assigned = text;
    assigned += text;
    EXPECT_EQ(plain + direct + assigned, "1.2.31.2.31.2.31.2.3");
    EXPECT_EQ(lengthOf(text), text.size());
    EXPECT_EQ(text.length(), 5U);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text[0], '1');
    EXPECT_EQ(text.at(4), '3');
    EXPECT_THROW(text.at(5), std::out_of_range);
    EXPECT_EQ(text.substr(2), "2.3");
    EXPECT_EQ(text.find('.'), 1U);
    EXPECT_EQ(text.find(".", 2), 3U);
    EXPECT_EQ(text.rfind(std::string("1.2"), 0), 0U);
    EXPECT_EQ(text.find("4"), std::string::npos);
    EXPECT_LT(text.compare("1.3"), 0);
    EXPECT_EQ(text.compare(0, 3, "1.2"), 0);
    EXPECT_STREQ(text.c_str(), "1.2.3");
    EXPECT_EQ(QString::fromStdString(text), QString("1.2.3"));
    std::ostringstream out;
    out << "version " << text;
    EXPECT_EQ(out.str(), "version 1.2.3");
    EXPECT_EQ(testing::PrintToString(text), "1.2.3");
}

TEST(sharedText, ComparesWithEveryKindOfText) {
    sharedText text, same, later;
    text = same = "a";
    later = std::string("b");
    const std::string plain = "a";
    EXPECT_TRUE(text == "a" && "a" == text && text == plain && plain == text && text == same);
    EXPECT_TRUE(text != "b" && "b" != text && text != std::string("b") && text != later);
    EXPECT_TRUE(text < "b" && "b" > text && plain < later && text < later && later >= plain);
    EXPECT_FALSE(text != "a" || text < "a" || later <= text);
    EXPECT_EQ(text, plain);
    EXPECT_EQ("a", text);
    EXPECT_NE(text, later);
}

TEST(sharedText, IsWrittenLikeAString) {
    sharedText text, other;
    text = std::string_view("1");
    text += '.';
    text += "2";
    text += std::string(".");
    other = '3';
    text += other;
    EXPECT_EQ(text, "1.2.3");
    EXPECT_EQ(text + "," + other, "1.2.3,3");
    EXPECT_EQ("<" + text + '>', "<1.2.3>");
    EXPECT_EQ('<' + (std::string("(") + other) + std::string(")") + text, "<(3)1.2.3");
    EXPECT_EQ(other + other + std::string("4") + other, "3343");
    text = *&text;
    EXPECT_EQ(text, "1.2.3") << "assigned to itself";
    text += text;
    EXPECT_EQ(text, "1.2.31.2.3");
    text = {};
    EXPECT_EQ(text, "");
    other.clear();
    EXPECT_TRUE(other.empty());
}

TEST(sharedText, IsChosenBetween) {
    sharedText text;
    text = "known";
    const std::string plain = "plain";
    for (const bool known : {true, false}) {
        EXPECT_EQ(known ? text : "literal", known ? "known" : "literal");
        EXPECT_EQ(known ? text : plain, known ? "known" : "plain");
        EXPECT_EQ(known ? std::string() : text, known ? "" : "known");
    }
}

TEST(sharedText, AHandedOutTextOutlivesTheNext) {
    sharedText text;
    text = "the first, too long for a short string's own place";
    const char* const first = text.c_str();
    text = "second";
    EXPECT_STREQ(first, "the first, too long for a short string's own place");
    EXPECT_STREQ(text.c_str(), "second");
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

TEST(shared, ReadsLikeThePlainValue) {
    coreState::MODULE module;
    coreState::REPLY reply;
    module.mode = 5;
    module.base.hwRev = std::uint8_t{2};
    reply.page = 0xFFFF;
    reply.reportedType = coreState::STM32F4;
    const int number = 5;
    const std::size_t size = 3;
    EXPECT_TRUE(module.mode == number && 5U == module.mode && module.base.hwRev < size);
    EXPECT_TRUE(reply.moduleReported == -1 && reply.moduleReported < number && reply.page > size);
    EXPECT_EQ(module.mode, number);
    EXPECT_EQ(reply.page, 0xFFFFU);
    EXPECT_EQ(reply.reportedType, coreState::STM32F4);
    EXPECT_FALSE(module.available);
    EXPECT_TRUE(!module.available && !(module.available || module.lostCom));
    const char letters[] = "abcdef";
    EXPECT_EQ(letters[module.mode], 'f');
    EXPECT_EQ(std::vector<int>({7, 8, 9})[module.base.hwRev], 9);
    switch (reply.reportedType) {
    case coreState::STM32F4:
        break;
    default:
        ADD_FAILURE();
    }
    switch (module.mode) {
    case 5:
        break;
    default:
        ADD_FAILURE();
    }
    std::ostringstream shared;
    std::ostringstream plain;
    shared << module.mode << reply.page << module.available << reply.moduleReported;
    plain << std::uint8_t{5} << 0xFFFFU << false << std::int8_t{-1};
    EXPECT_EQ(shared.str(), plain.str());
    EXPECT_EQ(std::to_string(module.mode) + std::to_string(reply.page), "565535");
    EXPECT_EQ(std::max<unsigned>(reply.page, 3), 0xFFFFU);
    EXPECT_EQ(static_cast<int>(reply.moduleReported) + module.mode, 4);
    static_assert(std::is_same_v<decltype(module.available ? module.available : true), bool>);
    static_assert(std::is_same_v<decltype(true ? module.mode : 0), int>);
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
    number = {};
    EXPECT_EQ(number, 0);
    shared<bool> flag;
    flag |= true;
    EXPECT_TRUE(flag);
    flag &= false;
    EXPECT_FALSE(flag);
    shared<bool> copy{true};
    flag = copy = *&copy;
    EXPECT_TRUE(flag);
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

TEST(shared, RecordsAreListedLikePlainOnes) {
    const coreState::BASE_ITEM item{"1.0", 2, 9, true, {{{"image.hex", "2.0"}}, true}};
    EXPECT_EQ(item.swVersion, "1.0");
    EXPECT_EQ(item.hwRev, 2);
    EXPECT_EQ(item.id, 9);
    EXPECT_TRUE(item.isAccurate && item.update.resetAfterUpdate);
    EXPECT_EQ(item.update.items.at(0).version, "2.0");
    coreState::MODULE module{3, "0a0b", true, false, item};
    const coreState::MODULE copy = module;
    module = {};
    EXPECT_EQ(module.mode, 0);
    EXPECT_EQ(copy.mode, 3);
    EXPECT_EQ(copy.serial, "0a0b");
    EXPECT_TRUE(copy.available && !copy.lostCom);
    EXPECT_EQ(copy.base.swVersion + copy.base.update.items[0].item, "1.0image.hex");
    const coreState::BASE_ITEM named{.swVersion = "1", .hwRev = 4, .isAccurate = true, .update = {}};
    EXPECT_EQ(named.hwRev, 4);
}

} // namespace
