#pragma once

namespace orv::cfg {

// Keeps a client's own commits from driving its loop.
//
// Each commit comes back as a notice, which wakes the loop. Where rows are at odds with each other, or two
// clients with one another, each reading leads to a commit, and the loop would go as fast as the machine can,
// for ever. So a wake-up costs one of a number of them where the client has committed since the wake-up
// before. When they are used up, the loop does not wake for notices any more and comes to them in its own
// rhythm. Some iterations in a row without a notice show that all is at rest, and give all of them back; a
// single one only shows that the other client waits longer. What others change costs nothing.
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
