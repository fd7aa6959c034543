#include "usbStick.h"

#include "../lib/durable.h"
#include "../lib/functs.h"
#include "../lib/plainFile.h"

#include <sys/mount.h>
#include <sys/stat.h>

using namespace packageRules;

namespace {

/** The small file beside the package, if there is one; what can't be its content arrives as nothing. */
void copyBeside(const std::string& ending) {
    const std::string source = usbStick::PACKAGE + ending;
    struct stat info {};
    if (lstat(source.c_str(), &info) == 0) {
        const auto text = plainFile::contents(source, usbStick::PLACE, LONGEST_DIGEST);
        functs().writeFileContents(FETCHED + ending, text.value_or(""));
    }
}

} // namespace

int usbStick::copyPackage() {
    if (!functs().isFile(PACKAGE)) {
        return NO_PACKAGE;
    }
    plainFile package(PACKAGE, PLACE);
    const auto room = durable::freeBytes(FETCHED.substr(0, FETCHED.rfind('/')));
    if (!room || package.size() <= *room) { // else the card would be full for nothing
        package.copyTo(FETCHED);            // a copy that failed does not validate
    }
    copyBeside(SIGNATURE);
    copyBeside(DIGEST); // last: where it is, everything is
    return 0;
}

bool usbStick::isMounted(int stick) {
    struct stat itself {};
    struct stat above {};
    return fstat(stick, &itself) == 0 && fstatat(stick, "..", &above, 0) == 0 &&
           (itself.st_dev != above.st_dev || itself.st_ino == above.st_ino);
}

int usbStick::unmount() {
    return umount(PLACE.c_str());
}
