#pragma once

#include "velta/protocol/resultcode.h"
#include "velta/valuelist.h"

#include <string>

namespace orv::horad {

// What the handlers that write to the store have in common.

// The cells of a write that changes one column.
velta::ValueList oneCell(const char* column, velta::Value::TypeCode type, int number);
velta::ValueList oneCell(const char* column, const std::string& text);

// For those that write switches: two error lines, each with a debug line behind it that tells the reason.
// Their wording, "not" left out and a number at the end, is what people search logs for. C26: sic
void logStartFailure(const velta::protocol::EResultCode& result);
void logWriteFailure(const velta::protocol::EResultCode& result);

} // namespace orv::horad
