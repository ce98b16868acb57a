#pragma once

#include <functional>
#include <vector>

#include <unistd.h>

// While one lives, usleep() returns at once and the microseconds are written down; without one, it sleeps. At
// most one at a time. In force wherever scriptedsleep.cpp is linked.
class ScriptedSleep {
public:
    ScriptedSleep();
    ~ScriptedSleep();
    ScriptedSleep(const ScriptedSleep&) = delete;
    ScriptedSleep& operator=(const ScriptedSleep&) = delete;

    std::vector<useconds_t> sleeps;
    std::function<void()> onSleep; // called at the end of each, if set
};
