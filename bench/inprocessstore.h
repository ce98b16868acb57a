#pragma once

#include "cfg/iconfigclient.h"

#include <string>

namespace bench {

inline velta::Value text(const std::string& content) {
    velta::Value value;
    value.setText(content);
    return value;
}

inline velta::Value number(int content, velta::Value::TypeCode type = velta::Value::Switch) {
    velta::Value value(type);
    value.setInteger(content);
    return value;
}

// A store without rows that takes every write and forgets it. A benchmark supplies the rows that it needs.
class InProcessStore : public orv::cfg::common::IConfigClient {
public:
    using EResultCode = orv::cfg::common::EResultCode;

    EResultCode size(const std::string&, unsigned& rows) override {
        rows = 0;
        return {};
    }
    EResultCode selectRow(const std::string&, unsigned, velta::ValueList&, const velta::NameList&) override {
        return {};
    }
    EResultCode selectRowByKey(const std::string&, const std::string&, const std::string&,
                               velta::ValueList&) override {
        return {};
    }
    EResultCode writeSingleRow(const std::string&, unsigned, const velta::ValueList&) override { return {}; }
    EResultCode updateRow(const std::string&, const std::string&, const std::string&,
                          const velta::ValueList&) override {
        return {};
    }
    bool isTransactionOpen() override { return false; }
    EResultCode startTransaction() override {
        ++transactions_;
        return {};
    }
    EResultCode closeTransaction() override { return {}; }
    EResultCode abortTransaction() override { return {}; }

    unsigned transactions() const { return transactions_; } // that were started so far

private:
    unsigned transactions_ = 0;
};

} // namespace bench
