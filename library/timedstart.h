#pragma once

#include <QDateTime>

// A playlist row's fixed start time. Hard: at that moment whatever is on air fades out and the row
// starts, even mid-track. Soft: once the time has come the row is the next to start, following the
// current track at its normal mix point. Either way the rows between are skipped.
struct TimedStart {
    enum class Mode { None, Hard, Soft };

    Mode mode = Mode::None;
    QDateTime at;           // local date and time the row is due
    bool timeOfDay = false; // came as a bare "HH:MM:SS" (the next such time): saved back the same way

    bool isTimed() const { return mode != Mode::None && at.isValid(); }
    bool isHard() const { return mode == Mode::Hard && at.isValid(); }
    bool isSoft() const { return mode == Mode::Soft && at.isValid(); }
};
