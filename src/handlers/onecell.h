#pragma once

#include "velta/valuelist.h"

#include <string>

namespace orv::horad {

// The cells of a write that changes one column.
velta::ValueList oneCell(const char* column, velta::Value::TypeCode type, int number);
velta::ValueList oneCell(const char* column, const std::string& text);

} // namespace orv::horad
