#include "store/users.h"

#include <array>

#include <pwd.h>
#include <unistd.h>

namespace store {

bool isRootOrOwn(uid_t user) {
    return user == 0 || user == geteuid();
}

std::string userText(uid_t user) {
    std::array<char, 4096> room{};
    passwd entry{};
    passwd* found = nullptr;
    const int error = getpwuid_r(user, &entry, room.data(), room.size(), &found);
    const std::string number = std::to_string(user);
    if (error != 0 || found == nullptr)
        return "user " + number;
    return std::string("user ") + found->pw_name + " (" + number + ")";
}

} // namespace store
