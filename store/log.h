#pragma once

#include <string>

// The log module "cfgserver".
namespace store::log {

// `debug` lets debug lines through; `useSyslog` sends all lines to the system log instead of standard error.
void open(bool debug, bool useSyslog);

void error(const std::string& text, const char* file = __builtin_FILE(), int line = __builtin_LINE());
void warning(const std::string& text, const char* file = __builtin_FILE(), int line = __builtin_LINE());
void info(const std::string& text, const char* file = __builtin_FILE(), int line = __builtin_LINE());
void debug(const std::string& text, const char* file = __builtin_FILE(), int line = __builtin_LINE());

} // namespace store::log
