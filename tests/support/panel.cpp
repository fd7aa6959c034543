#include "panel.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <algorithm>
#include <filesystem>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr int PATIENCE_MS = 30'000;
const std::string TREE = "/tmp/package/";
const std::string UNPACKED = "/keldra/tmp/keldra_update/";

} // namespace

bool awaitThat(const std::function<bool()>& condition) {
    QElapsedTimer timer;
    for (timer.start(); !condition();) {
        if (timer.elapsed() > PATIENCE_MS) {
            return false;
        }
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool holds(const Texts& texts, const std::string& part) {
    return std::any_of(texts.begin(), texts.end(),
                       [&](const std::string& text) { return text.find(part) != std::string::npos; });
}

Panel::Panel() {
    shell("rm -rf /tmp/package /tmp/update.log /keldra/* /mnt/usb/* /usr/bin/K+Updater");
    shell("mkdir /keldra/config /keldra/logs /keldra/tmp; : > /dev/mmcblk0p1");
}

Panel::~Panel() {
    core.reset();
    endStandIns();
}

void Panel::configure() {
    panel::configure(bus.port(), 115200, configuration);
}

void Panel::start() {
    configure();
    core = std::make_unique<updateCore>();
    const auto record = [this](const std::string& event) { events.push_back(event); };
    QObject::connect(core.get(), &updateCore::sendStatusMessage, &window_,
                     [this, record](const QString& text) {
                         record(text.toStdString());
                         shown.push_back(text.toStdString());
                     });
    QObject::connect(core.get(), &updateCore::incrimentProgressBar, &window_,
                     [record](double tick) { record("tick " + std::to_string(static_cast<int>(tick))); });
    QObject::connect(core.get(), &updateCore::sendUpdateDone, &window_,
                     [record](bool success) { record("done " + std::to_string(success)); });
    QObject::connect(core.get(), &updateCore::sendUpdatePackageLoaded, &window_,
                     [record](unsigned char mode) { record("loaded " + std::to_string(mode)); });
    QObject::connect(core.get(), &updateCore::sendReboot, &window_, [record] { record("reboot"); });
}

void Panel::settle() {
    EXPECT_TRUE(awaitThat([this] { return !core->load->isRunning() && !core->isRunning(); }));
    QCoreApplication::processEvents();
}

int Panel::load() {
    bus.autoAnswer(Bus::noModules);
    core->load->setCore(core.get());
    core->load->start();
    settle();
    const bool ended = !events.empty() && events.back().rfind("loaded ", 0) == 0;
    return ended ? events.back().back() - '0' : -1;
}

void Panel::update() {
    core->startUpdate();
    settle();
}

void Panel::pack(const std::string& name, const std::string& text, unsigned mode) {
    put(TREE + name, text, mode);
}

void Panel::packOntoStick(const std::string& manifest, const std::string& spoil) {
    pack("update.manifest", manifest);
    shell("cd " + TREE + " && sha1sum update.manifest > update.manifest.sha && " + spoil +
          " && tar -czf /mnt/usb/keldra_update.tgz . && cd /mnt/usb && "
          "sha1sum keldra_update.tgz > keldra_update.tgz.sha");
}

void Panel::unpacked(const std::string& name, const std::string& text, unsigned mode) {
    put(UNPACKED + name, text, mode);
}

void Panel::standIn(const std::string& program, const std::string& script) {
    fs::remove("/usr/bin/" + program); // a link to the host's
    put("/usr/bin/" + program, "#!/bin/sh\n" + script + "\n", 0755);
    standIns_.push_back(program);
}

void Panel::endStandIns() {
    for (const std::string& program : standIns_) {
        const std::string path = "/usr/bin/" + program;
        fs::remove(path);
        fs::create_symlink("/opt/host-bin/" + program, path);
    }
    standIns_.clear();
}

Texts Panel::logged() {
    std::istringstream log(contents("/tmp/update.log"));
    Texts lines;
    for (std::string line; std::getline(log, line);) {
        const std::size_t label = line.find('[');
        lines.push_back(line.substr(label, line.size() - label - 1)); // without the carriage return
    }
    return lines;
}
