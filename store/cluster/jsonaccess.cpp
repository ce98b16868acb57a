#include "store/cluster/jsonaccess.h"

#include <limits>

namespace store {

namespace {

const Json* memberOfType(const Json& object, const char* name, bool (*isType)(const Json&)) {
    const Json* const found = memberOf(object, name);
    return found != nullptr && isType(*found) ? found : nullptr;
}

} // namespace

const Json* memberOf(const Json& object, const char* name) {
    if (!object.is_object())
        return nullptr;
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

const Json* arrayAt(const Json& object, const char* name) {
    return memberOfType(object, name, [](const Json& json) { return json.is_array(); });
}

const Json* objectAt(const Json& object, const char* name) {
    return memberOfType(object, name, [](const Json& json) { return json.is_object(); });
}

std::string textAt(const Json& object, const char* name) {
    const Json* const text = memberOfType(object, name, [](const Json& json) { return json.is_string(); });
    return text == nullptr ? std::string() : text->get<std::string>();
}

std::optional<std::int64_t> integerAt(const Json& object, const char* name) {
    const Json* const number =
        memberOfType(object, name, [](const Json& json) { return json.is_number_integer(); });
    if (number == nullptr)
        return std::nullopt;
    constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
    if (number->is_number_unsigned() && number->get<std::uint64_t>() > most)
        return std::nullopt;
    return number->get<std::int64_t>();
}

std::optional<bool> switchAt(const Json& object, const char* name) {
    const Json* const found = memberOfType(object, name, [](const Json& json) { return json.is_boolean(); });
    return found == nullptr ? std::nullopt : std::optional<bool>(found->get<bool>());
}

std::optional<std::string> uuidAt(const Json& object, const char* name) {
    const Json* const pair = arrayAt(object, name);
    if (pair == nullptr || pair->size() != 2 || (*pair)[0] != "uuid" || !(*pair)[1].is_string())
        return std::nullopt;
    return (*pair)[1].get<std::string>();
}

std::optional<std::size_t> firstError(const Json& results) {
    for (std::size_t i = 0; i < results.size(); ++i)
        if (results[i].is_object() && results[i].contains("error"))
            return i;
    return std::nullopt;
}

} // namespace store
