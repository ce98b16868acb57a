#pragma once

namespace orv::error {

// From here on a lack of memory that nobody catches ends the process with the line "out of memory, the
// program ends" in the log and with exit status 1, and not with a signal: an exception out of a destructor,
// one that finds no memory for itself, and one out of main(). What else nobody catches still ends in abort().
// First of all in main().
//
// A program that calls this is also covered while its global objects are made, before main().
void endOnLackOfMemory(const char* program);

} // namespace orv::error
