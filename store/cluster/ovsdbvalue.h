#pragma once

#include "store/cluster/rpcmessage.h"
#include "store/storage/schema.h"
#include "velta/value.h"

#include <optional>
#include <string>

// Cells as a cluster holds them: numbers of all kinds as integers, texts and times as strings.
namespace store {

// Its name in the cluster's schema.
const char* ovsdbTypeOf(velta::Value::TypeCode type);

// None for a value that must not be sent, since the member would close the connection: `complaint` says why.
std::optional<Json> atomOf(const velta::Value& value, std::string& complaint);

// What came from a member. None if the column can't hold it: `complaint` says why.
std::optional<velta::Value> valueOf(const Column& column, const Json& atom, std::string& complaint);

} // namespace store
