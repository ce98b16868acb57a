// A client of a store, as firmware may bring it. There is no store: it only says that it was asked.

#pragma once

#include "cfg/deliveries.h"
#include "velta/net/eventdispatcher.h"

#include <functional>
#include <stdexcept>
#include <string>

namespace orv::cfg {

// Takes the place of a store: nothing is in it.
class NoStore : public common::IConfigClient {
public:
    using EResultCode = common::EResultCode;
    using Name = const std::string&;

    EResultCode size(Name, unsigned&) override { return none_; }
    EResultCode selectRow(Name, unsigned, velta::ValueList&, const velta::NameList&) override {
        return none_;
    }
    EResultCode selectRowByKey(Name, Name, Name, velta::ValueList&) override { return none_; }
    EResultCode writeSingleRow(Name, unsigned, const velta::ValueList&) override { return none_; }
    EResultCode updateRow(Name, Name, Name, const velta::ValueList&) override { return none_; }
    bool isTransactionOpen() override { return false; }
    EResultCode startTransaction() override { return none_; }
    EResultCode closeTransaction() override { return none_; }
    EResultCode abortTransaction() override { return none_; }

private:
    EResultCode none_ = velta::protocol::code::unknownTable;
};

class NotificationHandler {
public:
    NotificationHandler(const std::string& path, velta::net::EventDispatcher&, const std::string& name, bool,
                        unsigned, unsigned, bool, bool)
        : path_(path), name_(name) {}

    void stopOn(int) {}
    void registerConfigHandler(IConfigHandler* handler) { deliveries_.add(handler); }
    void initialize() {
        const std::string tables = std::to_string(deliveries_.tables().size());
        throw std::runtime_error("the firmware's client connects " + name_ + " to " + path_ + " for " +
                                 tables + " tables");
    }
    bool initialized() const { return false; }
    bool connected() const { return false; }
    void process() { deliveries_.deliver(); }
    void pass(const std::function<void(common::IConfigClient&)>& run) { deliveries_.pass(run); }
    common::IConfigClient& getConfigClient() { return deliveries_.client(); }

private:
    std::string path_;
    std::string name_;
    NoStore store_;
    Deliveries deliveries_{store_};
};

} // namespace orv::cfg
