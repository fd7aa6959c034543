#include "gui/UpdaterWindow.h"

#include "support/panel.h"

#include <QApplication>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QtTest/QtTest>

namespace {

const std::string MANIFEST = R"({"kernel":{"f":"kernel.img","v":"2.0"}})";

class UpdaterWindowTest : public Panel {
protected:
    void open() {
        bus.autoAnswer(Bus::noModules);
        start();
        window = std::make_unique<UpdaterWindow>(qApp, core.get());
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
    void press(const std::string& text) {
        for (QPushButton* button : window->findChildren<QPushButton*>()) {
            if (button->text().toStdString() == text) {
                QTest::mouseClick(button, Qt::LeftButton);
                return;
            }
        }
        FAIL() << "no button " << text;
    }
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
