// Every kind of finding that a package can have: its name, how bad it is, what the panel would do, the
// remedy.
#pragma once

#include "finding.h"

#include <string>
#include <vector>

namespace package::kinds {

using enum Severity;

// Digests and the archive.
inline constexpr Kind DIGEST_MISSING{"digest-missing", Error,
                                     "refuses the package: \"Updater file corrupted!\"",
                                     "put the SHA-1 beside the file: sha1sum FILE > FILE.sha"};
inline constexpr Kind DIGEST_FORM{
    "digest-form", Error, "refuses the package: \"Updater file corrupted!\"",
    "let the .sha file begin with the 40 digits, alone or followed by a blank and the file's name"};
inline constexpr Kind DIGEST_WRONG{
    "digest-wrong", Error, "refuses the package: \"Updater file corrupted!\"",
    "make the digest after the last change to the file; if nobody changed it, fetch it again"};
inline constexpr Kind DIGEST_NAME{"digest-name", Warning, "does not read the name and accepts the digest",
                                  "make the .sha file from the file that it stands beside"};
inline constexpr Kind PACKAGE_NAME{
    "package-name", Warning, "looks for keldra_update.tgz only: \"No updater file or USB not connected\"",
    "name it keldra_update.tgz on the stick, and its digest keldra_update.tgz.sha"};
inline constexpr Kind ARCHIVE_BROKEN{
    "archive-broken", Error, "does not unpack it: \"Internal Error\"",
    "write the archive again (tar compressed by gzip) and copy it completely", false};
inline constexpr Kind ARCHIVE_ENTRY{
    "archive-entry", Error, "stops unpacking or unpacks it where nobody looks for it",
    "pack files, directories and links with relative names without \"..\" only", false};
inline constexpr Kind MANIFEST_NOT_LAST{
    "manifest-not-last", Warning, "may find a manifest without its files after a loss of power",
    "put update.manifest and update.manifest.sha at the end of the archive"};
inline constexpr Kind MANIFEST_MISSING{"manifest-missing", Error,
                                       "refuses the package: \"Updater file corrupted!\"",
                                       "put update.manifest at the top of the archive", false};

inline constexpr Kind SIGNATURE_REFUSED{
    "signature-refused", Error, "refuses the package, with these keys: \"Updater file not trusted!\"",
    "sign the archive anew with one of these keys: keldra-package build --sign KEY"};
inline constexpr Kind UPDATER_TRUSTING{"updater-trusting", Error,
                                       "installs it, and takes any package from then on",
                                       "sign packages with an updater of this release or a later one"};
inline constexpr Kind FILE_CHANGED{"file-changed", Error, "refuses the file when its turn comes",
                                   "build the package anew, and change nothing in it afterwards"};

// The manifest and the description.
inline constexpr Kind MANIFEST_BLANK{"manifest-blank", Error, "refuses the package: \"Internal Error\"",
                                     "name the items in the manifest", false};
inline constexpr Kind MANIFEST_EMPTY{"manifest-empty", Error, "finds nothing to update",
                                     "name the items in the manifest", false};
inline constexpr Kind JSON_SYNTAX{"json-syntax", Error, "does not read the manifest: \"Internal Error\"",
                                  "correct the text at this place", false};
inline constexpr Kind ITEM_UNKNOWN{
    "item-unknown", Error, "ignores the item in silence",
    "use a name of those that package.md in /usr/share/doc/keldra-package-tools lists", false};
inline constexpr Kind ITEM_FORM{
    "item-form", Error, "takes nothing from it, or puts it into another item",
    "write the item as package.md in /usr/share/doc/keldra-package-tools shows it", false};
inline constexpr Kind ITEM_TWICE{"item-twice", Error,
                                 "appends the second files and gives the first ones the second versions",
                                 "name each item once"};
inline constexpr Kind ITEM_UNVISITED{"item-unvisited", Warning,
                                     "never updates the root file system and keeps its recorded version",
                                     "leave the item out"};
inline constexpr Kind ITEM_NESTED{
    "item-nested", Error, "takes the inner object's key for an item when it is longer than one character",
    "write the item as package.md in /usr/share/doc/keldra-package-tools shows it", false};
inline constexpr Kind KEY_UNKNOWN{"key-unknown", Error, "ignores the key in silence",
                                  "remove it, or correct its spelling"};
inline constexpr Kind KEY_TWICE{"key-twice", Error,
                                "appends files, and overwrites versions from the first on",
                                "write each key once, with a list of values", false};
inline constexpr Kind VALUE_NOT_TEXT{"value-not-text", Error, "loses a value that is not a text",
                                     "put it in quotation marks", false};
inline constexpr Kind VERSIONS_FIRST{"versions-first", Error, "drops the versions in silence",
                                     "write \"f\" before \"v\"", false};
inline constexpr Kind UNPAIRED{
    "unpaired", Error, "gives files without a version the empty one, and drops versions without a file",
    "give each file exactly one version, in the same order", false};
inline constexpr Kind VERSION_EMPTY{"version-empty", Error, "updates the item again and again",
                                    "give the version that the item reports once it is installed"};
inline constexpr Kind VERSION_FORM{
    "version-form", Error,
    "never finds it equal to what the module tells, or shows it with control characters",
    "write it as the module tells it: three numbers up to 255 without leading zeros, as 1.3.0"};
inline constexpr Kind TEXT_TOO_LONG{"text-too-long", Error, "refuses the package: \"Internal Error\"",
                                    "keep names and versions to 4096 bytes", false};
inline constexpr Kind REVISION_MISSING{"revision-missing", Error,
                                       "says \"up-to-date\" and leaves the module as it is",
                                       "add the image for that hardware revision"};
inline constexpr Kind REVISION_UNUSED{
    "revision-unused", Warning, "has hardware revision 0 for its own items: it takes the first file only",
    "list one file"};
inline constexpr Kind REVISION_TOO_HIGH{
    "revision-too-high", Error, "takes a hardware revision above 250 for 0", "list 251 files at most"};
inline constexpr Kind NAME_SHORT{"name-short", Error,
                                 "takes a name of two characters or fewer for no file and counts it as done",
                                 "give the file a longer name"};
inline constexpr Kind NAME_OUTSIDE{"name-outside", Error, "refuses a name that leads out of the package",
                                   "use names relative to the package, without \"..\"", false};
inline constexpr Kind NAME_FORM{
    "name-form", Error, "may find the file all the same, but two names then stand for one file",
    "write names without \"./\", doubled or closing slashes, and leave update.manifest to the package",
    false};
inline constexpr Kind NAME_SHELL{"name-shell", Error, "refuses a kernel of such a name, or cuts the name",
                                 "use letters, digits and ._+-/ only"};
inline constexpr Kind NAME_ODD{"name-odd", Warning, "copes with it; sticks and scripts may not",
                               "use letters, digits and ._+-/ only"};
inline constexpr Kind PROCESSOR_UNKNOWN{"processor-unknown", Error, "(does not read the description)",
                                        "use one of the kinds that keldra-package --help lists"};
inline constexpr Kind PROCESSOR_UNSUPPORTED{
    "processor-unsupported", Error, "ends the whole update: \"Unsupported processor\"",
    "PIC32 images are for ctrl only; check which item it is meant for"};

// Files.
inline constexpr Kind ALLOW_FORM{"allow-form", Error, "(does not read the description)",
                                 "write each as {\"finding\": NAME, \"file\": FILE, \"reason\": WHY}; "
                                 "only \"file\" may be missing",
                                 false};
inline constexpr Kind FILE_MISSING{"file-missing", Error,
                                   "fails at this item, with the items before it already installed",
                                   "put the file into the package, or correct its name", false};
inline constexpr Kind FILE_KIND{"file-kind", Error,
                                "fails at this item, with the items before it already installed",
                                "name a regular file, or for updater, gui and drivers a directory"};
inline constexpr Kind FILE_SPECIAL{"file-special", Error,
                                   "can't copy it, and records the new version all the same",
                                   "leave out devices, pipes and sockets: they are not packed"};
inline constexpr Kind FILE_UNREADABLE{"file-unreadable", Error, "(never gets it: it can't be packed)",
                                      "give yourself the right to read it: chmod u+rX FILE"};
inline constexpr Kind FILE_EMPTY{"file-empty", Error, "installs nothing and records the new version",
                                 "put the real content into the package"};
inline constexpr Kind FILE_HIDDEN{"file-hidden", Error, "does not copy names that begin with a full stop",
                                  "rename what is needed and remove the rest"};
inline constexpr Kind FILE_LEFT_OUT{"file-left-out", Warning,
                                    "does not copy names that begin with a full stop",
                                    "nothing, when it is for other tools only"};
inline constexpr Kind LINK_BROKEN{"link-broken", Error,
                                  "can't copy it, and records the new version all the same",
                                  "put the file itself into the package"};
inline constexpr Kind LINK_OUTSIDE{"link-outside", Error,
                                   "finds another file there, or none: the package brings only the link",
                                   "put the file itself into the package"};
inline constexpr Kind LINK_COPIED{"link-copied", Warning, "installs a copy of what the link leads to",
                                  "put the file itself into the package, or let the program make the link"};
inline constexpr Kind NOT_EXECUTABLE{"not-executable", Error, "installs a program that can't be started",
                                     "chmod +x FILE before packing"};
inline constexpr Kind UPDATER_NAME{
    "updater-name", Error, "installs it elsewhere and starts the old program, with the new version recorded",
    "name the program K+Updater, at the top of the package or of the directory that is named"};
inline constexpr Kind WRONG_MACHINE{"wrong-machine", Error,
                                    "installs it all the same, and can't start it from then on",
                                    "take the build for the panel's processor, or name another with --arch"};
inline constexpr Kind PROGRAM_DAMAGED{"program-damaged", Error,
                                      "installs it all the same, and can't start it from then on",
                                      "copy the file again, completely"};
inline constexpr Kind NO_PROGRAM{"no-program", Error,
                                 "installs it in the place of the only program that could repair the panel",
                                 "name the updater's program"};
inline constexpr Kind SCRIPT_FORM{"script-form", Error, "installs a script that can't be started",
                                  "let it begin with a line as #!/bin/sh, without a carriage return"};
inline constexpr Kind KERNEL_FORM{"kernel-form", Error,
                                  "writes it to the boot partition as it is, and starts no more",
                                  "name a whole uImage, zImage or Image; --kernel any takes anything"};
inline constexpr Kind CARD_SIZE{"card-size", Warning,
                                "keeps archive and files on its card at once, and fails when that is full",
                                "leave out what is not needed; --card-size says how much the card holds"};
inline constexpr Kind ARCHIVE_BOMB{"archive-bomb", Error,
                                   "unpacks it until its card is full: \"Internal Error\"",
                                   "look for a file that holds next to nothing, such as a disk image"};
inline constexpr Kind FILE_UNNAMED{"file-unnamed", Warning, "unpacks it and does nothing with it",
                                   "name it in the manifest or leave it out"};

// Firmware images.
inline constexpr Kind HEX_GARBAGE{
    "hex-garbage", Error,
    "skips the line; a damaged record it refuses with strict_images = 1, else it warns and reads other bytes",
    "write the image again with the linker; don't edit it"};
inline constexpr Kind IMAGE_FORM{"image-form", Error, "(never gets it: it can't be made into Intel HEX)",
                                 "let the linker write the image again, for the module's processor", false};
inline constexpr Kind HEX_FORMAT{"hex-format", Error,
                                 "finds no record in it: \"Bad HEX file\" with strict_images = 1, else "
                                 "programs nothing and counts it as done",
                                 "name an Intel HEX image; ELF and S-records go into package.json, or "
                                 "through keldra-package convert"};
inline constexpr Kind HEX_HUGE{"hex-huge", Error, "needs many times its size to read it",
                               "look for what is in it: no module has so much flash"};
inline constexpr Kind HEX_COUNT{"hex-count", Error,
                                "refuses it with strict_images = 1; else warns and trusts the count: "
                                "programs the checksum as data or drops bytes",
                                "write the image again with the linker"};
inline constexpr Kind HEX_TRUNCATED{
    "hex-truncated", Error,
    "refuses it with strict_images = 1; else warns and programs the part that is there",
    "copy the image again, completely"};
inline constexpr Kind HEX_CHECKSUM{"hex-checksum", Error,
                                   "refuses it with strict_images = 1; else warns and programs the bytes (a "
                                   "module that takes records refuses this one)",
                                   "a byte was damaged: take the image from its origin again"};
inline constexpr Kind HEX_FORM{"hex-form", Error, "reads another address from it, or ignores it",
                               "write the image again with the linker"};
inline constexpr Kind HEX_TYPE{"hex-type", Error,
                               "ignores it; a segment address it refuses with strict_images = 1, else it "
                               "warns, and what follows lands at the wrong place",
                               "write the image as I32HEX: records of type 00, 01, 04 and 05"};
inline constexpr Kind HEX_ORDER{"hex-order", Error,
                                "within a page, refuses it with strict_images = 1; else warns and appends "
                                "the bytes behind those that came before",
                                "sort the records by address"};
inline constexpr Kind HEX_OVERLAP{
    "hex-overlap", Error,
    "refuses it with strict_images = 1; else warns and programs both, one behind the other",
    "check what was merged into the image"};
inline constexpr Kind HEX_DUPLICATE{
    "hex-duplicate", Error,
    "refuses it with strict_images = 1; else warns and programs both, one behind the other",
    "check what was merged into the image"};
inline constexpr Kind HEX_NO_END{"hex-no-end", Error, "does not notice, and programs the part that is there",
                                 "copy the image again, completely; it ends with :00000001FF"};
inline constexpr Kind HEX_AFTER_END{"hex-after-end", Error, "programs what follows the end, too",
                                    "keep one image a file"};
inline constexpr Kind HEX_GAP{
    "hex-gap", Error, "refuses it with strict_images = 1; else warns and moves the bytes behind the gap up",
    "say \"fill\": true beside it in package.json, or fill it by keldra-package convert"};
inline constexpr Kind HEX_OUTSIDE{
    "hex-outside", Error,
    "drops the bytes with a line in the log (data that runs on from a region it refuses with strict_images = "
    "1), or sends the record to a module without a place for it",
    "leave them out (\"crop\": true in package.json, convert --crop), or choose the right processor"};
inline constexpr Kind HEX_CROPPED{"hex-cropped", Warning, "never gets these bytes",
                                  "nothing, when they are settings words that the module keeps"};
inline constexpr Kind HEX_TOO_LARGE{
    "hex-too-large", Error, "refuses it with strict_images = 1; else warns and cuts the address to 16 bits",
    "link the program below that address (settings words don't belong here)"};
inline constexpr Kind HEX_ERASE_RUN{"hex-erase-run", Error,
                                    "erases fewer pages than meant: the request counts to 256",
                                    "move the parts of the program together, or fill the space between them"};
inline constexpr Kind HEX_FIRST_REGION{
    "hex-first-region", Error,
    "refuses it with strict_images = 1; else warns and programs nothing, and counts it as done",
    "give the image its part in the first region, too"};
inline constexpr Kind HEX_ALIGNMENT{"hex-alignment", Error,
                                    "refuses it with strict_images = 1; else warns and takes the wrong bytes "
                                    "for the fourth ones, which it leaves out",
                                    "let every record begin and end with a whole instruction of 4 bytes"};
inline constexpr Kind HEX_PHANTOM{"hex-phantom", Error, "leaves the byte out",
                                  "the image is not for this processor: use the PIC24 linker's"};
inline constexpr Kind HEX_EMPTY{
    "hex-empty", Error,
    "refuses it with strict_images = 1; else warns and programs nothing, and counts it as done",
    "put the module's image into the package"};
inline constexpr Kind HEX_REFUSED{"hex-refused", Error,
                                  "refuses it, at least with strict_images = 1: \"Bad HEX file\"",
                                  "write the image again with the linker"};

// All of them, in their order here.
inline constexpr const Kind* ALL[] = {&DIGEST_MISSING,    &DIGEST_FORM,
                                      &DIGEST_WRONG,      &DIGEST_NAME,
                                      &PACKAGE_NAME,      &ARCHIVE_BROKEN,
                                      &ARCHIVE_ENTRY,     &MANIFEST_NOT_LAST,
                                      &MANIFEST_MISSING,  &MANIFEST_BLANK,
                                      &MANIFEST_EMPTY,    &JSON_SYNTAX,
                                      &ITEM_UNKNOWN,      &ITEM_FORM,
                                      &ITEM_TWICE,        &ITEM_UNVISITED,
                                      &ITEM_NESTED,       &KEY_UNKNOWN,
                                      &KEY_TWICE,         &VALUE_NOT_TEXT,
                                      &VERSIONS_FIRST,    &UNPAIRED,
                                      &VERSION_EMPTY,     &VERSION_FORM,
                                      &REVISION_MISSING,  &REVISION_UNUSED,
                                      &REVISION_TOO_HIGH, &NAME_SHORT,
                                      &NAME_OUTSIDE,      &NAME_FORM,
                                      &NAME_SHELL,        &NAME_ODD,
                                      &PROCESSOR_UNKNOWN, &PROCESSOR_UNSUPPORTED,
                                      &ALLOW_FORM,        &FILE_MISSING,
                                      &FILE_KIND,         &FILE_SPECIAL,
                                      &FILE_UNREADABLE,   &FILE_EMPTY,
                                      &FILE_HIDDEN,       &FILE_LEFT_OUT,
                                      &LINK_BROKEN,       &LINK_OUTSIDE,
                                      &LINK_COPIED,       &NOT_EXECUTABLE,
                                      &UPDATER_NAME,      &WRONG_MACHINE,
                                      &NO_PROGRAM,        &SCRIPT_FORM,
                                      &KERNEL_FORM,       &CARD_SIZE,
                                      &ARCHIVE_BOMB,      &FILE_UNNAMED,
                                      &HEX_GARBAGE,       &IMAGE_FORM,
                                      &HEX_FORMAT,        &HEX_HUGE,
                                      &HEX_COUNT,         &HEX_TRUNCATED,
                                      &HEX_CHECKSUM,      &HEX_FORM,
                                      &HEX_TYPE,          &HEX_ORDER,
                                      &HEX_OVERLAP,       &HEX_DUPLICATE,
                                      &HEX_NO_END,        &HEX_AFTER_END,
                                      &HEX_GAP,           &HEX_OUTSIDE,
                                      &HEX_TOO_LARGE,     &HEX_ERASE_RUN,
                                      &HEX_FIRST_REGION,  &HEX_ALIGNMENT,
                                      &HEX_PHANTOM,       &HEX_EMPTY,
                                      &HEX_REFUSED,       &SIGNATURE_REFUSED,
                                      &UPDATER_TRUSTING,  &FILE_CHANGED,
                                      &TEXT_TOO_LONG,     &PROGRAM_DAMAGED,
                                      &HEX_CROPPED};

std::vector<std::string> names();
// What is wrong with the name of a kind to be allowed; empty when nothing is.
std::string objectionToAllowing(const std::string& name);

} // namespace package::kinds
