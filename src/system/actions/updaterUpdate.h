#pragma once

#include "../startRecord.h"
#include "fileUpdate.h"

#include <string>

/**
 * Replaces the updater itself. A new one that is a program of a processor is tried and there is room for it
 * before the old one is removed. On a panel that keeps a record for its starter (startRecord.h) that is so of
 * any new one, and a copy of the old one is kept and the record tells what is coming, all before the old one
 * is removed. Elsewhere what is no such program installs as any other file.
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
