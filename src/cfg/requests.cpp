#include "cfg/requests.h"

namespace orv::cfg::requests {

using velta::ValueList;
using velta::protocol::Request;
using velta::protocol::RequestKind;

Request of(RequestKind kind, const std::string& table) {
    Request request;
    request.kind = kind;
    request.table = table;
    return request;
}

Request byKey(RequestKind kind, const std::string& table, const std::string& keyColumn,
              const std::string& key) {
    Request request = of(kind, table);
    request.keyColumn = keyColumn;
    request.key = key;
    return request;
}

Request writeSingle(const std::string& table, unsigned row, const ValueList& values) {
    Request request = of(RequestKind::WriteSingle, table);
    request.number = row;
    request.values = values;
    return request;
}

Request update(const std::string& table, const std::string& keyColumn, const std::string& key,
               const ValueList& values) {
    Request request = byKey(RequestKind::Update, table, keyColumn, key);
    request.values = values;
    return request;
}

Request insert(const std::string& table, const ValueList& values) {
    Request request = of(RequestKind::Insert, table);
    request.values = values;
    return request;
}

Request remove(const std::string& table, const std::string& keyColumn, const std::string& key) {
    return byKey(RequestKind::Remove, table, keyColumn, key);
}

} // namespace orv::cfg::requests
