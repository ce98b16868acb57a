#include "handlers/writefailure.h"

#include "log.h"

namespace orv::horad {

using velta::protocol::EResultCode;

void logStartFailure(const EResultCode& result) {
    Logger::instance().error("Could start transaction: %d", result.code());
    Logger::instance().debug("startTransaction() failed: %s", result.strerror().c_str());
}

void logWriteFailure(const EResultCode& result) {
    Logger::instance().error("Could not set status: %d", result.code());
    Logger::instance().debug("writing the status failed: %s", result.strerror().c_str());
}

} // namespace orv::horad
