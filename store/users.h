#pragma once

#include <string>

#include <sys/types.h>

namespace store {

// Root, or the user that this process runs as.
bool isRootOrOwn(uid_t user);

// A user for a person: "user daemon (1)", or "user 54321" where the number has no name. It may look into
// files or ask a name service, so it is for the start and for what is rare.
std::string userText(uid_t user);

} // namespace store
