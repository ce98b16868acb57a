#pragma once

// While one lives, sysinfo() says the uptime that it is told, and nothing else of the system; without one,
// the real one. At most one at a time. In force wherever scripteduptime.cpp is linked.
class ScriptedUptime {
public:
    explicit ScriptedUptime(unsigned seconds);
    ~ScriptedUptime();
    ScriptedUptime(const ScriptedUptime&) = delete;
    ScriptedUptime& operator=(const ScriptedUptime&) = delete;

    void set(unsigned seconds) { seconds_ = seconds; }
    unsigned seconds() const { return seconds_; }
    // From now on sysinfo() fails and tells nothing, or, with false, works again.
    void fail(bool failing = true) { failing_ = failing; }
    bool failing() const { return failing_; }

private:
    unsigned seconds_;
    bool failing_ = false;
};
