#pragma once

#include <sys/stat.h>

/** True when two descriptors are of one file, whatever they were opened by. */
inline bool isSameFile(int fd, int other) {
    struct stat a {};
    struct stat b {};
    return fstat(fd, &a) == 0 && fstat(other, &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}
