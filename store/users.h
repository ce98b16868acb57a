#pragma once

#include <string>

#include <sys/types.h>

namespace store {

// Root, or the user that this process runs as.
bool isRootOrOwn(uid_t user);

// A user as a text for people: "user daemon (1)", or "user 54321" if the number has no name. It may read
// files or ask a name service, so it is for start-up and for rare events.
std::string userText(uid_t user);

} // namespace store
