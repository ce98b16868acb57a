#include "orv/lackofmemory.h"

#include "orv/sysloglevel.h"

#include <cerrno>
#include <exception>
#include <new>
#include <typeinfo>

#include <cxxabi.h>
#include <unistd.h>

namespace orv::error {

namespace {

const char* programName = nullptr;
std::terminate_handler before = nullptr;

// There is no exception if none could be allocated. Nothing else in these programs gets here without one.
bool isLackOfMemory() {
    const std::type_info* const type = abi::__cxa_current_exception_type();
    return type == nullptr || *type == typeid(std::bad_alloc) || *type == typeid(std::bad_array_new_length);
}

// Nothing in here allocates or throws.
[[noreturn]] void endProcess() {
    if (!isLackOfMemory())
        before();
    const ORV_Sysloglevel_Modul* const module = ORV_Sysloglevel_registerModul(programName);
    ORV_Sysloglevel_changeTracelevel(programName, ORV_Sysloglevel_Error); // whatever it was before
    ORV_Sysloglevel_error(module, "lackofmemory", 1, "out of memory, the program ends");
    _exit(1);
}

// Runs before the program's global objects are made. The numbers up to 100 are reserved for the system.
__attribute__((constructor(101))) void install() {
    programName = program_invocation_short_name; // the C library has set it by then
    before = std::set_terminate(endProcess);
}

} // namespace

void endOnLackOfMemory(const char* program) {
    programName = program;
}

} // namespace orv::error
