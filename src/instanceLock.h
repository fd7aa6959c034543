#pragma once

/**
 * One updater at a time: two would write the same bus and the same card. The lock is the kernel's, on the
 * directory "/keldra/config", and ends with the process whatever ends it; nothing is written. A restarted
 * updater is given the lock of the one that starts it, so that nobody comes between.
 */
class instanceLock {
public:
    instanceLock();
    instanceLock(const instanceLock&) = delete;
    instanceLock& operator=(const instanceLock&) = delete;
    ~instanceLock();

    /** False when another updater runs. Where nothing can be locked, none is taken to. */
    bool isHeld() const { return held; }
    /** In the child process that becomes the next updater: it takes the lock along. */
    void handOver() const;

private:
    int fd;
    bool held;
};
