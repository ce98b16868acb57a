#pragma once

#include "velta/protocol/message.h"

#include <string>

// Makes requests from what they carry.
namespace orv::cfg::requests {

velta::protocol::Request of(velta::protocol::RequestKind kind, const std::string& table = {});
velta::protocol::Request byKey(velta::protocol::RequestKind kind, const std::string& table,
                               const std::string& keyColumn, const std::string& key);

velta::protocol::Request writeSingle(const std::string& table, unsigned row, const velta::ValueList& values);
velta::protocol::Request update(const std::string& table, const std::string& keyColumn,
                                const std::string& key, const velta::ValueList& values);
velta::protocol::Request insert(const std::string& table, const velta::ValueList& values);
velta::protocol::Request remove(const std::string& table, const std::string& keyColumn,
                                const std::string& key);

} // namespace orv::cfg::requests
