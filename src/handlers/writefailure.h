#pragma once

#include "velta/protocol/resultcode.h"

namespace orv::horad {

// What is logged where a switch could not be written: an error line, with a debug line behind it that tells
// the reason. Their wording, "not" left out and a number at the end, is what people search logs for. C26: sic
void logStartFailure(const velta::protocol::EResultCode& result);
void logWriteFailure(const velta::protocol::EResultCode& result);

} // namespace orv::horad
