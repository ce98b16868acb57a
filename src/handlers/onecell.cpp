#include "handlers/onecell.h"

namespace orv::horad {

using velta::Value;
using velta::ValueList;

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

} // namespace orv::horad
