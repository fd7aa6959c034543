#pragma once

#include "support/table.h"
#include "system/actions/bootloadDialogue.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/**
 * The line to one module, in a time of its own that moves only while it is waited. The module answers every
 * request well in 2 ms, and one for its status with its last reply, unless a script says otherwise: with
 * "S: deaf ok; ?: lost" it never hears the first start of a page, and its status never arrives. The words of
 * a kind are for the first such request, the second... and the last of them for all others.
 *
 * Kinds: , enter, ! leave, ? status, S start, R row, M row out of its order, W write, E erase, A erase all.
 *
 *   ok      the usual       deaf   never heard      lost     carried out, but the reply does not arrive
 *   lateN   carried out at once, but the reply takes N ms   twice    so does a second one, 1 ms behind
 *   workN   carried out in N ms; the status asked for meanwhile is the one before
 *   busyN   the same; what is asked meanwhile is answered behind it
 *   =N      status N        rowN   for row N        byN      in the name of N
 *   short   names nobody    plain  no identification         idN    the identification of N
 *
 * "late40+=4" joins words, "=1&ok" are two answers.
 */
class ScriptedHost : public bootloadHost {
public:
    static constexpr std::uint8_t MODULE = 9;

    explicit ScriptedHost(const std::string& text = "") {
        std::istringstream kinds(text);
        for (std::string kind, name, word; std::getline(kinds, kind, ';');) {
            std::istringstream words(kind);
            for (words >> name; words >> word;) {
                script_[name.at(0)].push_back(word);
            }
        }
    }

    void send(const busMessages::PROCBUS_MSG& msg) override {
        coming_.erase(coming_.begin(), coming_.upper_bound(time));
        sent.emplace_back(time, msg);
        std::vector<std::string>& words = script_[kindOf(msg)];
        std::istringstream answers(words.empty() ? "ok" : words.front());
        if (words.size() > 1) {
            words.erase(words.begin());
        }
        for (std::string answer; std::getline(answers, answer, '&');) {
            carryOut(msg, answer);
        }
    }
    std::optional<busMessages::ANSWER> receive(milliseconds wait) override {
        const auto end = std::min(time + wait, cancelTime);
        if (cancelled() || coming_.empty() || coming_.begin()->first > end) {
            time = std::max(time, end);
            return {};
        }
        const auto next = coming_.extract(coming_.begin());
        time = std::max(time, next.key());
        return next.mapped();
    }
    void pause(milliseconds length) override { time += length; }
    clock::time_point now() const override { return clock::time_point(time); }
    bool cancelled() const override { return time >= cancelTime; }
    void log(const std::string& text, logger::LOG_TYPE type) override {
        static const char* const LEVELS[] = {"[Error]: ", "[Warning]: ", "[Notice]: "};
        logged.push_back(LEVELS[type] + text);
    }

    /** The requests: ", S R0 ? R1", with "M" between them where a mark was set, "?" where only the status was
     * asked. */
    std::string transcript() const {
        std::string text;
        for (const auto& [when, msg] : sent) {
            const char kind = kindOf(msg);
            if ((kind == '?' || kind == 'M') && (text.ends_with(" ?") || text.ends_with(" M"))) {
                text.back() = std::max(text.back(), kind);
            } else {
                text += std::string(text.empty() ? "" : " ") + kind;
                text += kind == 'R' ? std::to_string(rowOf(msg)) : "";
            }
        }
        return text;
    }

    milliseconds time{1000};
    milliseconds cancelTime = milliseconds::max();
    std::vector<std::pair<milliseconds, busMessages::PROCBUS_MSG>> sent; ///< and when
    std::vector<std::string> logged;

private:
    using ANSWER = busMessages::ANSWER;
    using REPLY = busMessages::REPLY;

    static char kindOf(const busMessages::PROCBUS_MSG& msg) {
        if (msg.id == busProtocol::BOOTLOADER_COMMAND) {
            return "-S-?WEA"[msg.data[1]];
        }
        if (msg.id == busProtocol::SYSTEM_COMMAND) {
            return static_cast<char>(msg.data[1]);
        }
        return msg.data[0] == 2 && msg.length == 2 && msg.data[1] == 0xFF ? 'M' : 'R';
    }
    static std::uint32_t rowOf(const busMessages::PROCBUS_MSG& msg) {
        return msg.data[0] + (msg.id == busProtocol::DATA_ROW_WIDE ? 256U * msg.data[1] : 0U);
    }

    ANSWER usual(const busMessages::PROCBUS_MSG& msg, milliseconds done) {
        const char kind = kindOf(msg);
        if (kind == ',') {
            return {busMessages::IDENTIFICATION{1, {1, 2, 3}, busProtocol::STM32F3, false, MODULE}, {}};
        }
        const auto last = said_.upper_bound(done);
        if (kind == '?' && last != said_.begin()) {
            return {{}, std::prev(last)->second};
        }
        const bool missed = kind == '?' || kind == 'M';
        return {{},
                {missed ? bootloadDialogue::MISSEDPACKET : bootloadDialogue::OK, kind == 'R' ? rowOf(msg) : 0,
                 MODULE}};
    }

    void carryOut(const busMessages::PROCBUS_MSG& msg, const std::string& how) {
        std::map<std::string, unsigned> words;
        std::istringstream list(how);
        for (std::string word; std::getline(list, word, '+');) {
            const std::size_t number = std::min(word.find_first_of("0123456789"), word.size());
            words[word.substr(0, number)] = static_cast<unsigned>(std::atoi(word.c_str() + number));
        }
        const auto has = [&words](const char* word) { return words.count(word) != 0; };
        if (has("deaf")) {
            return;
        }
        tellsMeanwhile_ = has("work") || (tellsMeanwhile_ && !has("busy"));
        const bool atOnce = kindOf(msg) == '?' && tellsMeanwhile_;
        const auto done =
            (atOnce ? time : std::max(time, freeAt_)) + milliseconds(1 + words["work"] + words["busy"]);
        freeAt_ = atOnce ? freeAt_ : done;
        ANSWER answer = has("plain") ? ANSWER{{}, {bootloadDialogue::OK, 0, MODULE}} : usual(msg, done);
        if (has("id")) {
            answer.identification = busMessages::IDENTIFICATION{};
            answer.identification->module = static_cast<std::int8_t>(words["id"]);
        }
        REPLY& reply = answer.reply;
        reply.status = has("=") ? static_cast<std::uint8_t>(words["="]) : reply.status;
        reply.row = has("row") ? words["row"] : reply.row;
        reply.module = has("short") ? busMessages::NO_MODULE : reply.module;
        reply.module = has("by") ? static_cast<std::int8_t>(words["by"]) : reply.module;
        if (answer.identification) {
            said_.clear();
        } else if (kindOf(msg) != '?') {
            said_.emplace(done, reply);
        }
        const auto arrives = done + milliseconds(has("late") ? words["late"] : 1);
        for (unsigned copy = 0; copy < (has("lost") ? 0U : has("twice") ? 2U : 1U); ++copy) {
            coming_.emplace(arrives + milliseconds(copy), answer);
        }
    }

    std::map<char, std::vector<std::string>> script_;
    std::multimap<milliseconds, ANSWER> coming_;
    std::multimap<milliseconds, REPLY> said_; ///< what the module repeats, from when on
    milliseconds freeAt_{0};
    bool tellsMeanwhile_ = false; ///< its status, at once
};
