#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace store {

using Json = nlohmann::json;

// A message of JSON-RPC as a member sends it.
struct RpcMessage {
    enum class Kind { Request, Notification, Answer };

    Kind kind = Kind::Notification;
    std::string method;         // of a request or notification
    Json params;                // its parameters, an array
    Json id;                    // of a request, as the member chose it
    std::uint64_t answered = 0; // the id of the call that an answer is for
    Json result;                // of an answer
    Json error;                 // of an answer; not null if the call failed
};

// None if the text is no such message; `complaint` says why.
std::optional<RpcMessage> rpcMessageOf(std::string_view text, std::string& complaint);

// Messages as they are sent. They throw Json::type_error if a text in them is not UTF-8.
std::string requestText(const std::string& method, const Json& params, std::uint64_t id);
std::string answerText(const Json& result, const Json& error, const Json& id);

} // namespace store
