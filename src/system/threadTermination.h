#pragma once

#include <QThread>

/**
 * Where a worker thread may be ended by QThread::terminate(). Termination unwinds the stack, so it must never
 * strike inside a destructor, a lock or a half-made change: every worker's run() begins with forbid() and
 * lifts the ban only around its blocking read or its poll sleep.
 */
class threadTermination : private QThread {
public:
    static void forbid() { setTerminationEnabled(false); }

    /** Calls `blocking` as the one place at which this thread may be terminated. */
    template <class CALL>
    static auto allowDuring(CALL blocking) {
        setTerminationEnabled(true); // ends the thread here when that was asked for meanwhile
        const auto result = blocking();
        setTerminationEnabled(false);
        return result;
    }
};
