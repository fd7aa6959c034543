#include "heartBeat.h"

namespace {

constexpr int BEAT_MS = 100;
constexpr int STILL_MS = 300;  // without a beat
constexpr int SETTLE_MS = 300; // in which what has queued up arrives

} // namespace

heartBeat::heartBeat(QObject* parent) : QObject(parent) {
    sinceBeat.start();
    connect(&timer, &QTimer::timeout, this, &heartBeat::beat);
    timer.start(BEAT_MS);
}

bool heartBeat::hasMissed() const {
    return sinceBeat.hasExpired(STILL_MS) || (sinceStill.isValid() && !sinceStill.hasExpired(SETTLE_MS));
}

void heartBeat::beat() {
    if (sinceBeat.hasExpired(STILL_MS)) {
        sinceStill.start();
    }
    sinceBeat.start();
}
