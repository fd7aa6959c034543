// Every kind of fault that a package can have: its name, how bad it is, what the panel would do, the remedy.
#pragma once

#include "finding.h"

namespace package::faults {

using enum Severity;

// Digests and the archive.
inline constexpr Fault digestMissing{"digest-missing", Error,
                                     "refuses the package: \"Updater file corrupted!\"",
                                     "put the SHA-1 beside the file: sha1sum FILE > FILE.sha"};
inline constexpr Fault digestForm{
    "digest-form", Error, "refuses the package: \"Updater file corrupted!\"",
    "let the .sha file begin with the 40 digits, alone or followed by a blank and the file's name"};
inline constexpr Fault digestWrong{
    "digest-wrong", Error, "refuses the package: \"Updater file corrupted!\"",
    "make the digest after the last change to the file; if nobody changed it, fetch it again"};
inline constexpr Fault digestName{"digest-name", Warning, "does not read the name and accepts the digest",
                                  "make the .sha file from the file that it stands beside"};
inline constexpr Fault packageName{
    "package-name", Warning, "looks for keldra_update.tgz only: \"No updater file or USB not connected\"",
    "name it keldra_update.tgz on the stick, and its digest keldra_update.tgz.sha"};
inline constexpr Fault archiveBroken{
    "archive-broken", Error, "does not unpack it: \"Internal Error\"",
    "write the archive again (tar compressed by gzip) and copy it completely"};
inline constexpr Fault archiveEntry{
    "archive-entry", Error, "stops unpacking or unpacks it where nobody looks for it",
    "pack files, directories and links with relative names without \"..\" only"};
inline constexpr Fault manifestNotLast{
    "manifest-not-last", Warning, "may find a manifest without its files after a loss of power",
    "put update.manifest and update.manifest.sha at the end of the archive"};
inline constexpr Fault manifestMissing{"manifest-missing", Error,
                                       "refuses the package: \"Updater file corrupted!\"",
                                       "put update.manifest at the top of the archive"};

// The manifest and the description.
inline constexpr Fault manifestBlank{"manifest-blank", Error,
                                     "finds nothing to update, or says \"Internal Error\"",
                                     "name the items in the manifest"};
inline constexpr Fault jsonSyntax{"json-syntax", Error, "does not read the manifest: \"Internal Error\"",
                                  "correct the text at this place"};
inline constexpr Fault itemUnknown{"item-unknown", Error, "ignores the item in silence",
                                   "use a name that docs/package.md lists, in lower case"};
inline constexpr Fault itemForm{"item-form", Error, "takes nothing from it, or puts it into another item",
                                "write the item as docs/package.md shows it"};
inline constexpr Fault itemTwice{"item-twice", Error,
                                 "appends the second files and gives the first ones the second versions",
                                 "name each item once"};
inline constexpr Fault itemUnvisited{"item-unvisited", Warning,
                                     "never updates the root file system and keeps its recorded version",
                                     "leave the item out"};
inline constexpr Fault itemNested{
    "item-nested", Error, "takes the inner object's key for an item when it is longer than one character",
    "write the item as docs/package.md shows it"};
inline constexpr Fault keyUnknown{"key-unknown", Error, "ignores the key in silence",
                                  "remove it, or spell it as docs/package.md does"};
inline constexpr Fault keyTwice{"key-twice", Error,
                                "appends files, and overwrites versions from the first on",
                                "write each key once, with a list of values"};
inline constexpr Fault valueNotText{"value-not-text", Error, "loses a value that is not a text",
                                    "put it in quotation marks"};
inline constexpr Fault versionsFirst{"versions-first", Error, "drops the versions in silence",
                                     "write \"f\" before \"v\""};
inline constexpr Fault unpaired{
    "unpaired", Error, "gives files without a version the empty one, and drops versions without a file",
    "give each file exactly one version, in the same order"};
inline constexpr Fault versionEmpty{"version-empty", Error, "updates the item again and again",
                                    "give the version that the item reports once it is installed"};
inline constexpr Fault versionForm{
    "version-form", Error, "never finds it equal to what the module tells, and shows line ends as such",
    "write it as the module tells it: three numbers up to 255 without leading zeros, as 1.3.0"};
inline constexpr Fault revisionMissing{"revision-missing", Error,
                                       "says \"up-to-date\" and leaves the module as it is",
                                       "add the image for that hardware revision"};
inline constexpr Fault revisionUnused{
    "revision-unused", Warning, "has hardware revision 0 for its own items: it takes the first file only",
    "list one file"};
inline constexpr Fault revisionTooHigh{"revision-too-high", Error,
                                       "takes a hardware revision above 250 for 0", "list 251 files at most"};
inline constexpr Fault nameShort{"name-short", Error,
                                 "takes a name of two characters or fewer for no file and counts it as done",
                                 "give the file a longer name"};
inline constexpr Fault nameOutside{"name-outside", Error, "refuses a name that leads out of the package",
                                   "use names relative to the package, without \"..\""};
inline constexpr Fault nameForm{
    "name-form", Error, "may find the file all the same, but two names then stand for one file",
    "write names without \"./\", doubled or closing slashes, and leave update.manifest to the package"};
inline constexpr Fault nameShell{"name-shell", Error,
                                 "refuses such a kernel; other names may not survive scripts and sticks",
                                 "use letters, digits and ._+-/ only"};
inline constexpr Fault processorUnknown{"processor-unknown", Error, "(does not read the description)",
                                        "use pic24, pic24-old, pic32-records, pic32-pages, stm32f0, stm32f3 "
                                        "or stm32f4"};
inline constexpr Fault processorUnsupported{
    "processor-unsupported", Error, "ends the whole update: \"Unsupported processor\"",
    "PIC32 images are for ctrl only; check which item it is meant for"};

// Files.
inline constexpr Fault fileMissing{"file-missing", Error,
                                   "fails at this item, with the items before it already installed",
                                   "put the file into the package, or correct its name"};
inline constexpr Fault fileKind{"file-kind", Error,
                                "fails at this item, with the items before it already installed",
                                "name a regular file, or for updater, gui and drivers a directory"};
inline constexpr Fault fileUnreadable{"file-unreadable", Error, "(never gets it: it can't be packed)",
                                      "give yourself the right to read it: chmod u+rX FILE"};
inline constexpr Fault fileEmpty{"file-empty", Error, "installs nothing and records the new version",
                                 "put the real content into the package"};
inline constexpr Fault fileHidden{"file-hidden", Error, "does not copy names that begin with a full stop",
                                  "rename what is needed and remove the rest"};
inline constexpr Fault linkBroken{"link-broken", Error,
                                  "can't copy it, and records the new version all the same",
                                  "put the file itself into the package"};
inline constexpr Fault linkOutside{"link-outside", Error,
                                   "finds another file there, or none: the package brings only the link",
                                   "put the file itself into the package"};
inline constexpr Fault linkCopied{"link-copied", Warning, "installs a copy of what the link leads to",
                                  "put the file itself into the package, or let the program make the link"};
inline constexpr Fault notExecutable{"not-executable", Error, "installs a program that can't be started",
                                     "chmod +x FILE before packing"};
inline constexpr Fault updaterName{
    "updater-name", Error, "installs it elsewhere and starts the old program, with the new version recorded",
    "name the program K+Updater, at the top of the package or of the directory that is named"};
inline constexpr Fault fileUnnamed{"file-unnamed", Warning, "unpacks it and does nothing with it",
                                   "name it in the manifest or leave it out"};

// Firmware images.
inline constexpr Fault hexGarbage{
    "hex-garbage", Error,
    "skips the line; a damaged record it refuses with strict_images = 1, else it warns and reads other bytes",
    "write the image again with the linker; don't edit it"};
inline constexpr Fault hexCount{"hex-count", Error,
                                "refuses it with strict_images = 1; else warns and trusts the count: "
                                "programs the checksum as data or drops bytes",
                                "write the image again with the linker"};
inline constexpr Fault hexTruncated{
    "hex-truncated", Error,
    "refuses it with strict_images = 1; else warns and programs the part that is there",
    "copy the image again, completely"};
inline constexpr Fault hexChecksum{"hex-checksum", Error,
                                   "refuses it with strict_images = 1; else warns and programs the bytes (a "
                                   "module that takes records refuses this one)",
                                   "a byte was damaged: take the image from its origin again"};
inline constexpr Fault hexForm{"hex-form", Error, "reads another address from it, or ignores it",
                               "write the image again with the linker"};
inline constexpr Fault hexType{"hex-type", Error,
                               "ignores it; a segment address it refuses with strict_images = 1, else it "
                               "warns, and what follows lands at the wrong place",
                               "write the image as I32HEX: records of type 00, 01, 04 and 05"};
inline constexpr Fault hexOrder{"hex-order", Error,
                                "within a page, refuses it with strict_images = 1; else warns and appends "
                                "the bytes behind those that came before",
                                "sort the records by address"};
inline constexpr Fault hexOverlap{
    "hex-overlap", Error,
    "refuses it with strict_images = 1; else warns and programs both, one behind the other",
    "check what was merged into the image"};
inline constexpr Fault hexDuplicate{
    "hex-duplicate", Error,
    "refuses it with strict_images = 1; else warns and programs both, one behind the other",
    "check what was merged into the image"};
inline constexpr Fault hexNoEnd{"hex-no-end", Error, "does not notice, and programs the part that is there",
                                "copy the image again, completely; it ends with :00000001FF"};
inline constexpr Fault hexAfterEnd{"hex-after-end", Error, "programs what follows the end, too",
                                   "keep one image a file"};
inline constexpr Fault hexGap{
    "hex-gap", Error, "refuses it with strict_images = 1; else warns and moves the bytes behind the gap up",
    "let the linker fill every used page from its start, with FF"};
inline constexpr Fault hexOutside{
    "hex-outside", Error,
    "drops the bytes with a line in the log (data that runs on from a region it refuses with strict_images = "
    "1), or sends the record to a module without a place for it",
    "remove them from the image, or choose the right processor"};
inline constexpr Fault hexTooLarge{
    "hex-too-large", Error, "refuses it with strict_images = 1; else warns and cuts the address to 16 bits",
    "link the program below that address (settings words don't belong here)"};
inline constexpr Fault hexEraseRun{"hex-erase-run", Error,
                                   "erases fewer pages than meant: the request counts to 256",
                                   "move the parts of the program together, or fill the space between them"};
inline constexpr Fault hexFirstRegion{
    "hex-first-region", Error,
    "refuses it with strict_images = 1; else warns and programs nothing, and counts it as done",
    "give the image its part in the first region, too"};
inline constexpr Fault hexAlignment{"hex-alignment", Error,
                                    "refuses it with strict_images = 1; else warns and takes the wrong bytes "
                                    "for the fourth ones, which it leaves out",
                                    "let every record begin and end with a whole instruction of 4 bytes"};
inline constexpr Fault hexPhantom{"hex-phantom", Error, "leaves the byte out",
                                  "the image is not for this processor: use the PIC24 linker's"};
inline constexpr Fault hexEmpty{
    "hex-empty", Error,
    "refuses it with strict_images = 1; else warns and programs nothing, and counts it as done",
    "put the module's image into the package"};
inline constexpr Fault hexRefused{"hex-refused", Error,
                                  "refuses it, at least with strict_images = 1: \"Bad HEX file\"",
                                  "write the image again with the linker"};

} // namespace package::faults
