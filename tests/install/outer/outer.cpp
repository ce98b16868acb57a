// Uses horad's class, and a library of its own that is called like one of horad's.

#include "horad.h"

#include <cstdio>
#include <list>
#include <string>

const char* ownVelta();

int main() {
    int handlers = 0;
    std::list<std::string> tables = {"TimePlans"};
    const orv::horad::Horad horad(tables, 0, false, [&handlers](orv::cfg::IConfigHandler*) { ++handlers; });
    std::printf("%s, %d handlers\n", ownVelta(), handlers);
    return 0;
}
