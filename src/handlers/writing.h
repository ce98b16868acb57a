#pragma once

#include "velta/protocol/resultcode.h"
#include "velta/value.h"

namespace orv::horad {

// What the handlers that write switches have in common.

velta::Value switchValue(bool on);

// Two error lines, each with a debug line behind it that tells the reason. Their wording, "not" left out and
// a number at the end, is what people search logs for.
void logStartFailure(const velta::protocol::EResultCode& result);
void logWriteFailure(const velta::protocol::EResultCode& result);

} // namespace orv::horad
