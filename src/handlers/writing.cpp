#include "handlers/switchvalue.h"

#include "log.h"

namespace orv::horad {

using velta::protocol::EResultCode;

velta::Value switchValue(bool on) {
    velta::Value value(velta::Value::Switch);
    value.setInteger(on ? 1 : 0);
    return value;
}

void logStartFailure(const EResultCode& result) {
    Logger::instance().error("Could start transaction: %d", result.code());
    Logger::instance().debug("startTransaction() failed: %s", result.strerror().c_str());
}

void logWriteFailure(const EResultCode& result) {
    Logger::instance().error("Could not set status: %d", result.code());
    Logger::instance().debug("writing the status failed: %s", result.strerror().c_str());
}

} // namespace orv::horad
