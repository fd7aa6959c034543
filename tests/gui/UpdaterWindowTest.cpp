#include "gui/UpdaterWindow.h"

#include "support/panel.h"

#include <QApplication>
#include <QColor>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QtTest/QtTest>
#include <cmath>
#include <regex>

namespace {

const std::string MANIFEST = R"({"kernel":{"f":"kernel.img","v":"2.0"}})";
constexpr int DEAF_MS = 300; // in which a button that has changed takes no press
constexpr int SURELY_MS = 400;

class UpdaterWindowTest : public Panel {
protected:
    void open() {
        bus.autoAnswer(Bus::noModules);
        start();
        window = std::make_unique<UpdaterWindow>(qApp, core.get());
        QObject::disconnect(window.get(), nullptr, qApp, nullptr); // which the next test needs
        QObject::connect(window.get(), &UpdaterWindow::haltApplication, [this] { halted = true; });
        window->show();
    }
    /** Opens the window with this package on the stick and waits until it is loaded. */
    void openWithPackage(const std::string& installedKernel) {
        put("/keldra/config/system.manifest", "{\"kernel\":\"" + installedKernel + "\"}");
        pack("kernel.img", "image");
        packOntoStick(MANIFEST);
        open();
        ASSERT_TRUE(becomes("Run Update+ ALL+ Cancel+"));
    }
    /** The buttons with "+" when they can be pressed. */
    std::string buttons() const {
        std::string states;
        for (const QPushButton* button : window->findChildren<QPushButton*>()) {
            states += (states.empty() ? "" : " ") + button->text().toStdString() +
                      (button->isEnabled() ? "+" : "-");
        }
        return states;
    }
    bool becomes(const std::string& states) {
        const bool there = awaitThat([&] { return buttons() == states; });
        EXPECT_EQ(buttons(), states) << log();
        return there;
    }
    QPushButton* button(const std::string& text) const {
        for (QPushButton* each : window->findChildren<QPushButton*>()) {
            if (each->text().toStdString() == text) {
                return each;
            }
        }
        ADD_FAILURE() << "no button " << text;
        return nullptr;
    }
    void tap(const std::string& text) { QTest::mouseClick(button(text), Qt::LeftButton); }
    /** Taps when the button is as it is for long enough. */
    void press(const std::string& text) {
        QTest::qWait(SURELY_MS);
        tap(text);
    }
    /** Taps as soon as the main thread comes to it: in the midst of what it does now, or behind that. */
    void tapIn(int milliseconds, const std::string& text) {
        QTimer::singleShot(milliseconds, window.get(), [this, text] { tap(text); });
    }
    /** A run that writes the kernel, for `seconds`. */
    void startLongRun(const std::string& seconds) {
        openWithPackage("1.0");
        standIn("dd", "sleep " + seconds + R"(; cat "${1#if=}" >"${2#of=}")");
        press("Run Update");
        ASSERT_TRUE(awaitThat([this] { return holds({log()}, "Updating Kernel: 1.0 -> 2.0"); }));
    }
    std::string line() const { return window->findChild<QLabel*>("line")->text().toStdString(); }
    std::string log() const { return window->findChild<QPlainTextEdit*>()->toPlainText().toStdString(); }
    int progress() const { return window->findChild<QProgressBar*>()->value(); }

    std::unique_ptr<UpdaterWindow> window; ///< goes before the core
    bool halted = false;
};

TEST_F(UpdaterWindowTest, TheWholeStory) {
    open();
    EXPECT_EQ(buttons(), "Reload- ALL- Cancel+");
    EXPECT_EQ(window->size(), QSize(480, 272));
    ASSERT_TRUE(becomes("Reload+ ALL- Cancel+"));
    EXPECT_EQ(log(), "Loading Update File....\nNo updater file or USB not connected\n"
                     "Could not load update package...");
    pack("kernel.img", "image");
    packOntoStick(MANIFEST);
    press("Reload");
    EXPECT_EQ(buttons(), "Reload- ALL- Cancel+");
    EXPECT_EQ(log(), "");
    ASSERT_TRUE(becomes("Run Update+ ALL+ Cancel+"));
    EXPECT_EQ(log(), "Loading Update File....\nUpdater file loaded.");
    press("Run Update");
    EXPECT_EQ(buttons(), "Run Update- ALL- Cancel+");
    ASSERT_TRUE(becomes("Close+ ALL- Cancel-"));
    EXPECT_EQ(log().substr(0, 18), "Starting Update...");
    EXPECT_TRUE(log().ends_with("CTRL not found\nUpdate Succeeded!"));
    EXPECT_EQ(progress(), 100);
    EXPECT_FALSE(halted);
    press("Close");
    EXPECT_TRUE(halted);
    EXPECT_FALSE(core->reboot || succeeds("ls /keldra/tmp/keldra_update*"));
}

TEST_F(UpdaterWindowTest, AFailedUpdateCanBeStartedAgainAndIsNotForcedThen) {
    openWithPackage("2.0");
    standIn("dd", "exit 1");
    press("ALL");
    EXPECT_EQ(buttons(), "Run Update- ALL- Cancel+");
    ASSERT_TRUE(becomes("Start+ ALL+ Cancel+"));
    EXPECT_TRUE(holds({log()}, "Updating Kernel: 2.0 -> 2.0\nUpdate Failed!"));
    EXPECT_EQ(progress(), 6);
    press("Start");
    EXPECT_EQ(progress(), 0);
    ASSERT_TRUE(becomes("Close+ ALL- Cancel-"));
    EXPECT_TRUE(holds({log()}, "Kernel up-to-date"));
}

TEST_F(UpdaterWindowTest, CancelIsAnsweredAtOnceAndTakesNoSecondTap) {
    const std::string stale[] = {"Cancel", "Run Update", "ALL"};
    for (const std::string& second : stale) {
        startLongRun("2");
        QTest::qWait(SURELY_MS);
        std::string whileWaiting;
        QTimer::singleShot(100, window.get(), [&] { whileWaiting = buttons() + " " + line(); });
        tapIn(120, second);
        tapIn(300, second);
        QElapsedTimer timer;
        timer.start();
        tap("Cancel");
        EXPECT_GT(timer.elapsed(), 1000) << "the slot returns when the run has ended";
        EXPECT_EQ(whileWaiting, "Run Update- ALL- Cancel- Canceling...\nDo not remove power.") << second;
        EXPECT_EQ(buttons(), "Start+ ALL+ Cancel+") << second;
        tap("Cancel"); // the third of three: what it means has just changed
        QTest::qWait(SURELY_MS);
        EXPECT_FALSE(halted || core->running) << second;
        EXPECT_TRUE(log().ends_with("Checking Drivers for update\nCanceled\nUpdate Failed!")) << log();
        press("Cancel");
        EXPECT_TRUE(halted);
        halted = false;
        window.reset();
        endStandIns();
    }
}

TEST_F(UpdaterWindowTest, APressCountsOnlyForWhatWasDrawnWhenTheFingerCameDown) {
    startLongRun("1");
    QTest::qWait(SURELY_MS);
    QTest::mousePress(button("Cancel"), Qt::LeftButton); // to cancel; but then the run ends by itself
    ASSERT_TRUE(becomes("Close+ ALL- Cancel-"));
    QTest::mouseRelease(button("Cancel"), Qt::LeftButton);
    tap("Close");
    EXPECT_FALSE(halted);
    QTest::qWait(DEAF_MS + SURELY_MS);
    QThread::msleep(1000); // the window can't draw, and what is tapped queues up
    tap("Close");
    QTest::qWait(50);
    tap("Close");
    EXPECT_FALSE(halted);
    press("Close");
    EXPECT_TRUE(halted);
}

TEST_F(UpdaterWindowTest, ACancelledRunGivesOneVerdictAndNoErrors) {
    openWithPackage("1.0");
    bus.autoAnswer({});
    press("Run Update");
    press("Cancel");
    EXPECT_EQ(log(), "Starting Update...\nSwitching System to Bootload Mode...\nCanceled\nUpdate Failed!");
    EXPECT_FALSE(holds(logged(), "Could not switch system to update mode"));

    QObject::disconnect(window.get(), &UpdaterWindow::sendCancelUpdate, nullptr, nullptr);
    QObject::connect(window.get(), &UpdaterWindow::sendCancelUpdate, core.get(), [this] {
        while (core->isRunning()) { // it fails by itself before the core comes to wait for its end
            QThread::msleep(1);
        }
        core->cancelUpdate();
    });
    const std::function<void()> ends[] = {[this] { press("Cancel"); }, [this] { window->endRun(); }};
    for (const auto& end : ends) {
        press("Start");
        end();
        QTest::qWait(SURELY_MS);
        EXPECT_EQ(log(), "Starting Update...\nSwitching System to Bootload Mode...\n"
                         "Could not switch system to update mode\nCanceled\nUpdate Failed!");
    }

    bus.autoAnswer(Bus::noModules); // and one that is at its end, which the window does not know yet
    press("Start");
    while (core->isRunning()) {
        QThread::msleep(1);
    }
    window->cancelButtonAction();
    EXPECT_TRUE(log().ends_with("CTRL not found\nUpdate Succeeded!")) << log();
    EXPECT_EQ(buttons(), "Close+ ALL- Cancel-");
    EXPECT_FALSE(halted);
}

TEST_F(UpdaterWindowTest, TheLogIsMovedByAFingerAndFollowsAtItsEnd) {
    open();
    auto* text = window->findChild<QPlainTextEdit*>();
    QScrollBar* bar = text->verticalScrollBar();
    const auto say = [&](int lines) {
        for (int n = 0; n < lines; ++n) {
            window->statusMessage("line " + QString::number(n));
        }
    };
    const auto drag = [&](int from, int to) {
        QTest::mousePress(text->viewport(), Qt::LeftButton, {}, QPoint(100, from));
        QMouseEvent move(QEvent::MouseMove, QPointF(100, to), text->viewport()->mapToGlobal(QPoint(100, to)),
                         Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(text->viewport(), &move);
        QTest::mouseRelease(text->viewport(), Qt::LeftButton, {}, QPoint(100, to));
    };
    say(50);
    EXPECT_EQ(bar->value(), bar->maximum());
    drag(10, 70);
    const int up = bar->value();
    EXPECT_LT(up, bar->maximum());
    EXPECT_GT(up, bar->maximum() - 10);
    QTest::mouseDClick(text->viewport(), Qt::LeftButton, {}, QPoint(20, 20)); // on a word
    EXPECT_FALSE(text->textCursor().hasSelection());
    EXPECT_EQ(text->contextMenuPolicy(), Qt::NoContextMenu);
    say(5);
    EXPECT_EQ(bar->value(), up) << "who reads is not disturbed";
    drag(70, 0);
    drag(70, 0);
    drag(70, 0);
    say(5);
    EXPECT_EQ(bar->value(), bar->maximum());
    drag(10, 70);
    window->updateFinished(false); // the verdict is seen in any case
    EXPECT_EQ(bar->value(), bar->maximum());
}

TEST_F(UpdaterWindowTest, NoTextMovesAButton) {
    openWithPackage(std::string(40, '9'));
    const auto places = [this] {
        std::vector<QRect> rects;
        for (const QPushButton* each : window->findChildren<QPushButton*>()) {
            EXPECT_GE(each->height(), 48);
            rects.emplace_back(each->mapTo(window.get(), QPoint()), each->size());
            EXPECT_TRUE(window->rect().contains(rects.back()));
        }
        return rects;
    };
    const std::vector<QRect> before = places();
    for (int n = 0; n < 200; ++n) {
        window->statusMessage(QString(255, 'W'));
    }
    window->findChild<QLabel*>("line")->setText(QString(255, 'W'));
    QTest::qWait(50);
    EXPECT_EQ(places(), before);
}

TEST_F(UpdaterWindowTest, AFailureSaysWhatToDo) {
    const struct {
        const char* error;
        const char* advice;
    } rows[] = {
        {"DD command failed: a.img", "Make the package anew; if it persists, change the card."},
        {"CAN: Could not erase range (all)", "Try again; if it persists, change the module."},
        {"Serial: Bad HEX file", "Make the package anew with the right image for this hardware revision."},
        {"Update file corrupted",
         "Copy the package and its .sha file anew; if it persists, see whether /keldra is full."},
        {"Could not create temp directory",
         "Restart the panel; check /keldra; is the card full or read-only?"}, // by way of the row above
    };
    open();
    EXPECT_TRUE(becomes("Reload+ ALL- Cancel+"));
    EXPECT_EQ(line(), "Plug in a stick with the package at its top.\nThen press Reload.");
    for (const auto& row : rows) {
        core->log->log_item(row.error, logger::LOG_ERROR);
        window->updateFinished(false);
        EXPECT_EQ(line(), row.advice);
    }
    core->resumeUpdate = true; // what was unpacked will be removed, and the stick is not mounted any more
    for (const char* error :
         {"Could not create temp directory",
          "Could not untar archieve: status 2: gzip: stdin: unexpected end of file, and more of it",
          "Could not switch system to update mode"}) {
        core->log->log_item(error, logger::LOG_ERROR);
        window->statusMessage("Internal Error"); // one text for several reasons
        window->updatePackageLoaded(1);
        EXPECT_TRUE(line().starts_with(std::string(error).substr(0, 18))) << line();
        EXPECT_TRUE(line().ends_with("\nPlug in the stick again, then press Reload.")) << line();
        const auto* label = window->findChild<QLabel*>("line");
        const QRect room(0, 0, label->width(), 1000);
        EXPECT_LE(label->fontMetrics().boundingRect(room, Qt::TextWordWrap, label->text()).height(),
                  label->height())
            << line();
    }
}

/** By the WCAG's formula, of two colours of the style sheet. */
double contrast(const QColor& one, const QColor& other) {
    const auto luminance = [](const QColor& colour) {
        const auto linear = [](double part) {
            return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
               0.0722 * linear(colour.blueF());
    };
    const double a = luminance(one) + 0.05;
    const double b = luminance(other) + 0.05;
    return std::max(a / b, b / a);
}

TEST(StyleSheet, EveryTextStandsOutFromItsBackground) {
    const std::string style = contents(CONFIG "style.css");
    const std::regex rule("([^{}/]+)\\{([^}]*)\\}");
    const std::regex colours("(background-)?color: *(#[0-9a-f]{6})");
    int rules = 0;
    for (std::sregex_iterator at(style.begin(), style.end(), rule), end; at != end; ++at) {
        QColor text("#ffffff"); // of what has none of its own: buttons and the bar
        QColor background("#14181b");
        const std::string body = (*at)[2];
        for (std::sregex_iterator each(body.begin(), body.end(), colours); each != end; ++each) {
            ((*each)[1].matched ? background : text) = QColor((*each)[2].str().c_str());
        }
        EXPECT_GE(contrast(text, background), 4.5) << (*at)[1];
        ++rules;
    }
    EXPECT_GT(rules, 10);
}

TEST_F(UpdaterWindowTest, ProgressIsTheWholePartOfTheSum) {
    open();
    window->updateProgress(90.0);
    window->updateProgress(0.9);
    EXPECT_EQ(progress(), 90);
    window->updateProgress(0.2);
    EXPECT_EQ(progress(), 91);
}

TEST_F(UpdaterWindowTest, TheStyleSheetMayBeMissing) {
    testing::internal::CaptureStdout();
    open();
    EXPECT_EQ(testing::internal::GetCapturedStdout().find(
                  "Init Logger\nInit STD Win Attributes & CSS\nCould not load CSS file\n"),
              0)
        << "then the loader may have its say";
    window.reset();
    put("/keldra/config/style.css", "QLabel { color: red }");
    open();
    EXPECT_EQ(qApp->styleSheet(), "QLabel { color: red }\n");
    qApp->setStyleSheet("");
}

} // namespace
