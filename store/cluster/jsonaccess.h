#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

// Looks into JSON that somebody else has made: what is not there or of another type is none.
namespace store {

using Json = nlohmann::json;

// Null where there is no such member.
const Json* memberOf(const Json& object, const char* name);
const Json* arrayAt(const Json& object, const char* name);
const Json* objectAt(const Json& object, const char* name);
// Empty where there is no such text.
std::string textAt(const Json& object, const char* name);
std::optional<std::int64_t> integerAt(const Json& object, const char* name);
std::optional<bool> switchAt(const Json& object, const char* name);
// The text of an atom ["uuid", "..."]; an empty set, which stands for none, is none.
std::optional<std::string> uuidAt(const Json& object, const char* name);
// Where in the results of a transaction the first error stands.
std::optional<std::size_t> firstError(const Json& results);

} // namespace store
