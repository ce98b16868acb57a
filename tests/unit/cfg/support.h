#pragma once

#include "cfg/iconfighandler.h"
#include "support/capturedlog.h"
#include "support/scriptedserver.h"
#include "velta/valuelist.h"

#include <chrono>
#include <functional>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

namespace support {

inline constexpr const char* clientName = "client";

inline velta::Value integer(int number) {
    velta::Value value(velta::Value::Integer);
    value.setInteger(number);
    return value;
}

inline velta::ValueList row(int id, const std::string& name) {
    velta::Value text;
    text.setText(name);
    velta::ValueList values;
    values.add("Id", integer(id));
    values.add("Name", text);
    return values;
}

// The log, to be counted.
class CapturedLog {
public:
    std::string text() const { return output_.text(); }
    int count(const std::string& part) const {
        const std::string all = text();
        int found = 0;
        for (std::size_t at = all.find(part); at != std::string::npos; at = all.find(part, at + 1))
            ++found;
        return found;
    }
    int warnings() const { return count(" warning "); }
    int lines() const { return count("\n"); }

private:
    fakes::CapturedOutput output_{STDERR_FILENO};
};

// Keeps calling until it says true; false when that takes too long.
inline bool until(const std::function<bool()>& what,
                  std::chrono::milliseconds patience = std::chrono::milliseconds(5000)) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!what())
        if (std::chrono::steady_clock::now() > deadline)
            return false;
    return true;
}

using Calls = std::vector<std::string>;

// Writes down what it is called for, in a list that handlers can share.
class RecordingHandler : public orv::cfg::IConfigHandler {
public:
    using Client = orv::cfg::common::IConfigClient;

    RecordingHandler(Calls& calls, std::string name, std::list<std::string> followed)
        : tables(std::move(followed)), calls_(calls), name_(std::move(name)) {}

    std::list<std::string> tables; // that it follows

    // Called within the call of the same name, if set.
    std::function<void(Client&, const std::string& table)> onChange;
    std::function<void(Client&)> onProcess;

    void getTables(std::list<std::string>& names) override {
        names.insert(names.end(), tables.begin(), tables.end());
    }
    bool configChanged(Client& client, const std::string& table) override {
        calls_.push_back(name_ + " reads " + (table.empty() ? "everything" : table));
        if (onChange)
            onChange(client, table);
        return false; // decides nothing
    }
    void process(Client& client) override {
        calls_.push_back(name_ + " acts");
        if (onProcess)
            onProcess(client);
    }

private:
    Calls& calls_;
    std::string name_;
};

} // namespace support
