#pragma once

#include "tools/storetables.h"
#include "velta/value.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

// Rows and tables for the tests, in few words.
namespace tools::testing {

inline velta::Value number(unsigned typeCode, std::int64_t content) {
    velta::Value value(typeCode);
    value.setInteger(static_cast<std::int32_t>(static_cast<std::uint32_t>(content)));
    return value;
}

inline velta::Value text(const std::string& content) {
    velta::Value value;
    value.setText(content);
    return value;
}

inline velta::ValueList globals(int enable) {
    velta::ValueList row;
    row.add("WlanEnable", number(velta::Value::Switch, enable));
    return row;
}

inline velta::ValueList plan(std::int64_t id, const std::string& name, int status) {
    velta::ValueList row;
    row.add("Id", number(velta::Value::Integer, id));
    row.add("TimePlanName", text(name));
    row.add("TimePlanStatus", number(velta::Value::Switch, status));
    return row;
}

inline Table globalsTable() {
    return {"WlanGlobals", true, {{"WlanEnable", velta::Value::Switch}}};
}

inline Table planTable() {
    return {"WlanTimePlans",
            false,
            {{"Id", velta::Value::Integer},
             {"TimePlanName", velta::Value::Text},
             {"TimePlanStatus", velta::Value::Switch},
             {"Uses", velta::Value::Counter}}};
}

// What the call refuses with; the test fails where it does not.
template <typename Error = Refused, typename Call>
std::string errorOf(Call call) {
    try {
        (void)call();
    } catch (const Error& error) {
        return error.what();
    }
    ADD_FAILURE() << "nothing was refused";
    return {};
}

} // namespace tools::testing
