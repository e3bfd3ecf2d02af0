#pragma once

// Fade arithmetic of one deck: the engine drives it from a 40 ms timer and applies the gain.
class DeckFade
{
public:
    static constexpr int tickMs = 40;

    struct StartResult {
        bool runTimer = false;   // a stepped fade begins; the gain changes on the ticks
        bool stopPlayer = false; // an immediate fade to silence asked to stop the deck
    };
    struct TickResult {
        bool finished = false;   // the target is reached; stop the timer
        bool stopPlayer = false; // ...and stop the deck, it was faded out for good
    };

    // Replaces any running fade; the step is computed from the current gain.
    StartResult start(double target, int ms, bool stopAtEnd);
    TickResult tick();

    double gain = 1.0; // linear 0..1
    double fadeTarget = 1.0;
    double fadeStep = 0.0;
    bool stopAfterFade = false;
};
