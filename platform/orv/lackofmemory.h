#pragma once

namespace orv::error {

// From this call on, a lack of memory that nothing catches ends the process with the line "out of memory, the
// program ends" in the log and with exit status 1, and not with a signal. This covers an exception that
// leaves a destructor, one that finds no memory for itself, and one that leaves main(). Any other uncaught
// exception still ends in abort(). To be called first in main().
//
// A program that calls this is also covered while its global objects are made, before main().
void endOnLackOfMemory(const char* program);

} // namespace orv::error
