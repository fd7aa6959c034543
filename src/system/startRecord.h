#pragma once

#include <cstdint>
#include <functional>
#include <string>

/**
 * What the panel's starter and the updater tell each other, on the card: which updater is whole, which one is
 * being put in its place, and which is the last good one. A file of lines in `FOLDER`, replaced whole and
 * forced onto the card; the starter works without it, and where the folder is missing the updater keeps none.
 */
class startRecord {
public:
    /** A program, known by its content. */
    struct PROGRAM {
        std::uint64_t size = 0;
        std::string digest; ///< SHA-256, lower case; empty for none
        std::string version;

        bool isKnown() const { return !digest.empty(); }
        /** The same content, whatever it is called. */
        bool is(const PROGRAM& other) const {
            return isKnown() && size == other.size && digest == other.digest;
        }
    };

    inline static const std::string FOLDER = "/keldra/start";
    inline static const std::string FORMER = FOLDER + "/K+Updater"; ///< the last good updater
    inline static const std::string INSTALLED = "/usr/bin/K+Updater";

    static constexpr int PROVEN = -1;
    static constexpr int TRIES = 2; ///< starts without proof, behind which the former one is back

    enum class UNDERWAY { NOTHING, UPDATE, FORCED };

    PROGRAM updater;                       ///< what is installed, or was before `coming`
    PROGRAM coming;                        ///< what is being written over it; none once that is on the card
    std::string item;                      ///< the name of `coming` in the unpacked package
    PROGRAM former;                        ///< what lies at FORMER
    PROGRAM refused;                       ///< what was tried and did not prove itself
    int trial = PROVEN;                    ///< or how often the updater was started without proof
    UNDERWAY underway = UNDERWAY::NOTHING; ///< files of the panel are being replaced by a package's
    bool tornKernel = false;               ///< the kernel's image is being written
    bool isBack = false;                   ///< the former updater is back, and nobody has used it since
    std::string decided;                   ///< by the starter, when it was out of the ordinary

    /** What stands on the card; nothing known where there is none or it is damaged. */
    static startRecord load();
    /** False when it could not be written; what stood there stands. */
    bool save() const;
    /**
     * Loads, changes and saves it, for whoever shares it with other threads of the process. True when it
     * stands on the card as changed, or where none is kept.
     */
    static bool change(const std::function<void(startRecord&)>& how);
    /** Whether files of the panel are being replaced, from here on. */
    static void noteUnderway(UNDERWAY underway);
    /** Whether the panel keeps such a record. */
    static bool isKept();

    /** A program as it lies there; unknown when it is no file that can be started. */
    static PROGRAM programAt(const std::string& path);
    /** Of any file; unknown when it can't be read, or `goOn`, asked now and then, says no. */
    static PROGRAM contentOf(const std::string& path, const std::function<bool()>& goOn = nullptr);

private:
    std::string text() const;
    void take(const std::string& key, const std::string& value);
};
