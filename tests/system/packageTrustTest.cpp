#include "system/packageTrust.h"

#include "support/panel.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

const std::string MANIFEST = R"({"kernel":{"f":"kernel.img","v":"2.0"}})";
const std::string UNTRUSTED = "Updater file not trusted!";

/** A panel that trusts one key, and what the real minisign makes of the same files. */
class packageTrustTest : public Panel {
protected:
    packageTrustTest() {
        configuration += "trusted_keys = /keldra/config/keys\n";
        shell("rm -rf /tmp/made /tmp/stick; mkdir /keldra/config/keys /tmp/made; cd /tmp/made; "
              "for key in good other; do minisign -GWf -p $key.pub -s $key.sec; done; "
              "cp good.pub /keldra/config/keys");
        pack("kernel.img", "image");
        packOntoStick(MANIFEST);
        sign("good", "keldra_update.tgz");
        shell("cp -r /mnt/usb /tmp/stick");
    }
    static void sign(const std::string& key, const std::string& options) {
        shell("cd /mnt/usb && minisign -S -s /tmp/made/" + key + ".sec -t 'kernel 2.0' -m " + options);
    }
    /** The package as it was signed, and what somebody has done to it. */
    static void bring(const std::string& tamper) {
        shell("rm -rf /keldra/tmp/* /mnt/usb/*; cp /tmp/stick/* /mnt/usb; cd /mnt/usb; " + tamper);
    }
    static bool minisignTakesIt() {
        return succeeds("cd /mnt/usb && for key in /keldra/config/keys/*; do minisign -Vqp $key -m "
                        "keldra_update.tgz && exit; done; false");
    }
    Texts loadAnew() {
        shown.clear();
        put("/tmp/update.log", "");
        const int mode = load();
        EXPECT_EQ(mode == 1, shown.back() != "Updater file loaded.");
        return logged();
    }
};

TEST_F(packageTrustTest, TakesWhatATrustedKeySignedAndNothingElse) {
    const std::string resign = "sha1sum keldra_update.tgz >keldra_update.tgz.sha; ";
    const std::string sig = "keldra_update.tgz.minisig";
    const std::string damaged = "damaged signature file";
    const std::string fine = "by key";
    const struct {
        std::string tamper;
        std::string logged;
        bool stricter = false; ///< than minisign
    } rows[] = {
        {":", fine},
        {"sed -i 's/$/\\r/' " + sig, fine},
        {"sed -i '1s/: .*/: anybody may write here/' " + sig, fine},
        {"cp /tmp/made/other.pub /keldra/config/keys", fine},
        {"minisign -S -s /tmp/made/other.sec -m keldra_update.tgz", fine},
        {"rm /keldra/config/keys/other.pub; minisign -S -s /tmp/made/other.sec -m keldra_update.tgz",
         "unknown key "},
        {"rm " + sig, "no signature"},
        {"echo >>keldra_update.tgz; " + resign, "signature does not match"},
        {"echo x >a; minisign -S -s /tmp/made/good.sec -m a; mv a.minisig " + sig,
         "signature does not match"},
        {"sed -i '3s/2.0/3.0/' " + sig, "comment does not match"},
        {"minisign -S -l -s /tmp/made/good.sec -m keldra_update.tgz", "signature of the older form", true},
        {": >" + sig, damaged},
        {"truncate -s -10 " + sig, damaged},
        {"truncate -s 1M " + sig, damaged, true},
        {"head -c 300 /dev/urandom >" + sig, damaged},
        {"sed -i '3s/2.0/2\\x00.0/' " + sig, damaged},
        {"sed -i '3d' " + sig, damaged},
        {"sed -i '2s/$/ /' " + sig, damaged},
        {"sed -i '2s/^..../WFhY/' " + sig, damaged},
        {"echo more >>" + sig, damaged, true},
        {"rm " + sig + "; mkfifo " + sig, damaged},
        {"rm " + sig + "; ln -s /tmp/stick/" + sig + " .", damaged, true},
        {"echo x >/keldra/config/keys/good.pub", "no key in /keldra/config/keys"},
        {"rm /keldra/config/keys/*", "no key in /keldra/config/keys"},
        {"rmdir /keldra/config/keys", "no key in /keldra/config/keys"},
    };
    start();
    for (const auto& row : rows) {
        bring(row.tamper);
        const bool taken = row.logged == fine;
        if (!fs::is_fifo("/mnt/usb/" + sig)) {
            EXPECT_EQ(minisignTakesIt(), taken || row.stricter) << row.tamper;
        }
        const Texts log = loadAnew();
        const std::string said = taken ? "Package signed " : "[Error]: Package not trusted: ";
        EXPECT_TRUE(holds(log, said + row.logged)) << row.tamper;
        EXPECT_EQ(holds(log, "[Error]: Update file"), false) << row.tamper;
        EXPECT_EQ(shown.back(), taken ? "Updater file loaded." : UNTRUSTED) << row.tamper;
        EXPECT_EQ(fs::exists("/keldra/tmp/keldra_update/update.manifest"), taken) << row.tamper;
    }
}

TEST_F(packageTrustTest, ResumesFromTheSignedArchiveAlone) {
    const std::string kernel = "/keldra/tmp/keldra_update/kernel.img";
    start();
    EXPECT_TRUE(holds(loadAnew(), "kernel 2.0"));
    core->resumeUpdate = true;
    shell("rm -f /mnt/usb/*; echo hostile >" + kernel);
    EXPECT_TRUE(holds(loadAnew(), "Package signed"));
    EXPECT_EQ(contents(kernel), "image");
    shell("cd /keldra/tmp; echo >>keldra_update.tgz; sha1sum keldra_update.tgz >keldra_update.tgz.sha");
    EXPECT_TRUE(holds(loadAnew(), "[Error]: Package not trusted: signature does not match"));
    EXPECT_EQ(shown.back(), UNTRUSTED);
    EXPECT_FALSE(fs::exists("/keldra/tmp/keldra_update/update.manifest")); // also with no key asked for later
    unpacked("update.manifest", MANIFEST);
    shell("cd /keldra/tmp/keldra_update; rm -f ../*tgz*; sha1sum update.manifest >update.manifest.sha");
    EXPECT_TRUE(holds(loadAnew(), "No update file found")); // a tree alone is nothing
}

} // namespace
