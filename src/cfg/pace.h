#pragma once

namespace orv::cfg {

// Keeps a client's own commits from driving its loop.
//
// Each commit comes back as a notice, which wakes the loop. If rows contradict each other, or two clients do,
// each reading leads to a commit, and the loop would run as fast as the machine can, for ever. So there is a
// budget of wake-ups. A wake-up costs one if the client has committed since the wake-up before. When the
// budget is used up, the loop no longer wakes for notices and comes to them in its own rhythm. Several
// iterations in a row without a notice show that all is at rest, and restore the budget; a single one only
// shows that the other client waits longer. What others change costs nothing.
class Pace {
public:
    // The client has committed something.
    void committed() { hasCommitted_ = true; }
    // An iteration of the loop begins, and there are notices for it or none.
    void beginIteration(bool noticed);
    // Whether the loop may wake for a notice.
    bool mayWake() const { return wakeUpsLeft_ > 0; }

private:
    static constexpr unsigned wakeUps = 50;
    static constexpr unsigned iterationsAtRest = 5;

    unsigned wakeUpsLeft_ = wakeUps;
    unsigned quietIterations_ = 0; // in a row
    bool hasCommitted_ = false;    // since the last iteration with notices
};

} // namespace orv::cfg
