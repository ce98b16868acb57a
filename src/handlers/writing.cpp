#include "handlers/writing.h"

#include "log.h"

namespace orv::horad {

using velta::Value;
using velta::ValueList;
using velta::protocol::EResultCode;

namespace {

ValueList oneCell(const char* column, const Value& value) {
    ValueList values;
    values.add(column, value);
    return values;
}

} // namespace

ValueList oneCell(const char* column, Value::TypeCode type, int number) {
    Value value(type);
    value.setInteger(number);
    return oneCell(column, value);
}

ValueList oneCell(const char* column, const std::string& text) {
    Value value(Value::Text);
    value.setText(text);
    return oneCell(column, value);
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
