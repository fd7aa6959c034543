// An operator who presses whatever comes under his fingers, on a panel's display: real clicks, drawn from a
// seed. It looks at the screen's pixels whenever a finger comes down or goes up, listens to what the updater
// says on standard output (with debug = 1: all that its window shows), and prints both, for the judge.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using msec = std::chrono::milliseconds;

struct Point {
    int x, y;
};

/** A button's inner rectangle; all are of the same height. */
struct Button {
    int left, right;
    Point middle() const { return {(left + right) / 2, 236}; }
};

constexpr std::array<Button, 3> BUTTONS{{{20, 176}, {205, 275}, {305, 460}}};
constexpr int TOP = 214;
constexpr int BOTTOM = 258;

using Labels = std::array<std::string, BUTTONS.size()>;

/** The pixels of the X server, which keeps them in a file in the form of a window dump. */
class Screen {
public:
    explicit Screen(const fs::path& panel) : path_(panel / "Xvfb_screen0") {}

    /** One number for each button's picture. */
    std::array<std::string, BUTTONS.size()> pictures() const {
        std::ifstream file(path_, std::ios::binary);
        const std::string dump{std::istreambuf_iterator<char>(file), {}};
        const auto field = [&dump](std::size_t index) {
            std::uint32_t value = 0;
            for (std::size_t i = 4 * index; i < 4 * index + 4; ++i) {
                value = value << 8 | static_cast<unsigned char>(dump.at(i));
            }
            return value;
        };
        const std::size_t pixels =
            field(0) + 12 * std::size_t{field(19)}; // behind the header and the colours
        std::array<std::string, BUTTONS.size()> result;
        for (std::size_t i = 0; i < BUTTONS.size(); ++i) {
            std::string area;
            for (int y = TOP; y < BOTTOM; ++y) {
                const std::size_t row = pixels + static_cast<std::size_t>(y) * field(12);
                area += dump.substr(row + 4 * static_cast<std::size_t>(BUTTONS[i].left),
                                    4 * static_cast<std::size_t>(BUTTONS[i].right - BUTTONS[i].left));
            }
            result[i] = std::to_string(std::hash<std::string>()(area));
        }
        return result;
    }

private:
    fs::path path_;
};

class Monkey {
public:
    Monkey(fs::path folder, const std::string& pictureFile, pid_t sandbox, unsigned seed)
        : panel_(std::move(folder)),
          pixels_(panel_),
          pid_(sandbox),
          random_(seed),
          output_(panel_ / "output.txt"),
          clicker_(popen("xdotool - > /dev/null", "w")) {
        std::ifstream file(pictureFile);
        for (std::string picture, label; file >> picture >> label;) {
            known_[picture] = label;
        }
    }

    /** Presses for so long, or until the panel halts. */
    void run(msec duration) {
        while (now() < duration && isUp()) {
            act();
            wait(pauseLength());
        }
        const msec patience = now() + 15s;
        while (isUp() && now() < patience && (now() < patience - 14s || isStopping_)) {
            wait(50ms);
        }
        wait(300ms); // until what was said last has arrived
        std::cout << now().count() << " ended " << (isUp() ? "up " : "halted ") << presses_ << " presses\n";
        pclose(clicker_);
    }

private:
    int draw(int from, int to) { return std::uniform_int_distribution<>(from, to)(random_); }

    void act() {
        const int kind = draw(1, 100);
        if (kind <= 25) {
            tap(anyButton(), draw(10, 150));
        } else if (kind <= 50) { // a second tap, or a panel that bounces
            const Point at = anyButton();
            for (int taps = draw(2, 4); taps > 0; --taps) {
                tap(at, draw(5, 60));
                wait(msec(draw(5, 350)));
            }
        } else if (kind <= 65) { // right when something else is drawn
            const Labels before = look();
            for (const msec end = now() + 1500ms; look() == before && now() < end;) {
                wait(5ms);
            }
            wait(msec(draw(0, 350)));
            tap(anyButton(), draw(10, 150));
        } else if (kind <= 70) {
            tap(anyButton(), draw(300, 1500));
        } else if (kind <= 75) { // from one button to another
            drag(anyButton(), anyButton());
        } else if (kind <= 80) {
            drag({draw(20, 460), draw(110, 190)}, {draw(20, 460), draw(110, 190)});
        } else if (kind <= 84) {
            tap({draw(0, 479), draw(0, 271)}, draw(10, 150));
        } else if (kind <= 90) {
            moveStick();
        } else {
            freeze(msec(draw(100, 1200)));
        }
    }

    /** Less often the one that may halt the panel, which would be the end of it. */
    Point anyButton() {
        constexpr std::size_t OFTEN[] = {0, 0, 0, 0, 1, 1, 1, 2, 2};
        return BUTTONS[OFTEN[draw(0, 8)]].middle();
    }

    msec pauseLength() {
        constexpr int LONGEST[] = {30, 120, 400, 1500};
        return msec(draw(0, LONGEST[draw(0, 3)]));
    }

    void tap(Point at, int holdMs) {
        down(at);
        wait(msec(holdMs));
        up(at);
    }

    void drag(Point from, Point to) {
        down(from);
        for (int step = 1; step <= 4; ++step) {
            click("mousemove " + std::to_string(from.x + (to.x - from.x) * step / 4) + " " +
                  std::to_string(from.y + (to.y - from.y) * step / 4));
            wait(20ms);
        }
        up(to);
    }

    void down(Point at) {
        drawnAtPress_ = look();
        tell("down", at, drawnAtPress_);
        click("mousemove " + std::to_string(at.x) + " " + std::to_string(at.y) + " mousedown 1");
        cameDown_ = at;
        ++presses_;
    }

    /**
     * What the press can mean by what was drawn at both ends of it; a button that is down looks differently.
     */
    void up(Point at) {
        Labels drawn = look();
        tell("up", at, drawn);
        const std::size_t button = buttonAt(at);
        if (button < BUTTONS.size() && button == buttonAt(cameDown_)) {
            drawn[button] = drawnAtPress_[button];
            const std::string first = meaning(button, drawnAtPress_);
            if (!first.empty() && first == meaning(button, drawn)) {
                std::cout << now().count() << " means " << first << '\n';
            }
        }
        click("mouseup 1");
    }

    static std::string meaning(std::size_t button, const Labels& drawn) {
        if (button == 0) {
            return drawn[0] == "close" ? "halt" : drawn[0] == "start" ? "start" : "";
        }
        if (button == 1) {
            return drawn[1] == "all" ? "all" : "";
        }
        return drawn[2] != "cancel" || drawn[0] == "runs" ? "" : "halt";
    }

    /** Of the visible frame, too. */
    static std::size_t buttonAt(Point at) {
        std::size_t i = 0;
        while (i < BUTTONS.size() && (at.x < BUTTONS[i].left - 14 || at.x > BUTTONS[i].right + 14 ||
                                      at.y < TOP - 8 || at.y > BOTTOM + 8)) {
            ++i;
        }
        return i;
    }

    Labels look() const {
        Labels labels = pixels_.pictures();
        for (std::string& label : labels) {
            const auto found = known_.find(label);
            label = found == known_.end() ? "-" : found->second;
        }
        return labels;
    }

    void click(const std::string& words) {
        std::fputs((words + "\n").c_str(), clicker_);
        std::fflush(clicker_);
    }

    void moveStick() {
        const fs::path stick = panel_ / "usb/keldra_update.tgz";
        const fs::path pocket = panel_ / "pocket.tgz";
        std::error_code ignored;
        const bool isIn = fs::exists(stick);
        fs::rename(isIn ? stick : pocket, isIn ? pocket : stick, ignored);
        tell(isIn ? "stick out" : "stick in", {}, {});
    }

    /** The updater stands still, and what is pressed meanwhile queues up. */
    void freeze(msec duration) {
        std::vector<pid_t> stopped;
        const std::string display = std::string("DISPLAY=") + std::getenv("DISPLAY");
        for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
            const int process = std::atoi(entry.path().filename().c_str());
            if (process > 0 && contentOf(entry.path() / "comm") == "K+Updater\n" &&
                contentOf(entry.path() / "environ").find(display + '\0') != std::string::npos &&
                kill(process, SIGSTOP) == 0) {
                stopped.push_back(process);
            }
        }
        tell("freeze", {}, {});
        const msec end = now() + duration;
        while (now() < end) {
            tap(anyButton(), draw(10, 100));
            wait(msec(draw(10, 200)));
        }
        for (const pid_t process : stopped) {
            kill(process, SIGCONT);
        }
        tell("goes on", {}, {});
    }

    /** Nothing of a process that has just ended. */
    static std::string contentOf(const fs::path& path) {
        std::ifstream file(path);
        std::ostringstream content;
        content << file.rdbuf();
        return content.str();
    }

    void wait(msec duration) {
        const msec end = now() + duration;
        do {
            std::this_thread::sleep_for(std::min(10ms, std::max(0ms, end - now())));
            listen();
        } while (now() < end);
    }

    void listen() {
        output_.clear();
        for (std::string piece; std::getline(output_, piece);) {
            begunLine_ += piece;
            if (output_.eof()) {
                return; // the rest of the line is still to come
            }
            std::cout << now().count() << " said: " << begunLine_ << '\n';
            isStopping_ =
                begunLine_ == "stopping application" || (isStopping_ && begunLine_ != "Init Start ------");
            begunLine_.clear();
        }
    }

    void tell(const std::string& what, Point at, const Labels& drawn) {
        std::cout << now().count() << ' ' << what << ' ' << at.x << ',' << at.y << ": " << drawn[0] << ' '
                  << drawn[1] << ' ' << drawn[2] << '\n';
    }

    bool isUp() const { return kill(pid_, 0) == 0; }
    msec now() const { return std::chrono::duration_cast<msec>(std::chrono::steady_clock::now() - began_); }

    const fs::path panel_;
    const Screen pixels_;
    const pid_t pid_;
    std::mt19937 random_;
    std::ifstream output_;
    FILE* clicker_;
    std::map<std::string, std::string> known_;
    bool isStopping_ = false;
    Labels drawnAtPress_;
    Point cameDown_{};
    std::string begunLine_;
    unsigned presses_ = 0;
    const std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
};

} // namespace

int main(int argc, char** argv) {
    CLI::App app("presses the buttons of a panel at random");
    std::string panel;
    std::string pictures;
    pid_t sandbox = 0;
    unsigned seed = 0;
    app.add_option("panel", panel, "its folder")->required();
    app.add_option("--pictures", pictures, "what the buttons look like: a picture's number and a word each");
    app.add_option("--sandbox", sandbox, "process that ends when the panel halts");
    app.add_option("--seed", seed);
    CLI11_PARSE(app, argc, argv);
    if (pictures.empty()) { // what they look like now
        for (const std::string& picture : Screen(panel).pictures()) {
            std::cout << picture << '\n';
        }
        return 0;
    }
    Monkey(panel, pictures, sandbox, seed).run(msec(2000 + seed * 37 % 8000));
    return 0;
}
