#pragma once

#include "../startRecord.h"
#include "fileUpdate.h"

#include <string>

/**
 * Replaces the updater itself, on a panel that keeps a record for its starter (startRecord.h): the new one is
 * tried and there is room for it, a copy of the old one is kept and the record tells what is coming, all
 * before the old one is removed. Where no record is kept it installs as any other file, but for a program of a
 * processor, which is tried all the same.
 */
class updaterUpdate : public fileUpdate {
public:
    using fileUpdate::fileUpdate;

    /** NOUPDATE, too, for one that was tried before and did not prove itself, unless forced. */
    STATUS needsUpdate(bool force) override;
    bool run() override;

    /** Replaces the installed updater by a whole one that lies elsewhere; true when it is on the card. */
    static bool putBack(const std::string& source);

private:
    std::string nameOfProgram() const;
    bool isFit(const std::string& path);
    bool prepare(const std::string& name);
    bool keepFormer(startRecord& record);
    bool conclude(bool copied);
    bool fail(const std::string& text);
};
