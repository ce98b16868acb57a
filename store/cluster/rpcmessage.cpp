#include "store/cluster/rpcmessage.h"

#include <utility>

namespace store {

namespace {

// Takes the member out of the object; null if it has none of that name.
Json taken(Json& object, const char* name) {
    const auto found = object.find(name);
    return found == object.end() ? Json() : std::move(*found);
}

void readMethod(Json& object, RpcMessage& message, std::string& complaint) {
    const Json method = taken(object, "method");
    message.params = taken(object, "params");
    message.id = taken(object, "id");
    message.kind = message.id.is_null() ? RpcMessage::Kind::Notification : RpcMessage::Kind::Request;
    if (!method.is_string())
        complaint = "\"method\" is not a text";
    else if (!message.params.is_array())
        complaint = "\"params\" is not an array";
    else
        message.method = method.get<std::string>();
}

void readAnswer(Json& object, RpcMessage& message, std::string& complaint) {
    message.kind = RpcMessage::Kind::Answer;
    message.result = taken(object, "result");
    message.error = taken(object, "error");
    const Json id = taken(object, "id");
    if (id.is_number_unsigned())
        message.answered = id.get<std::uint64_t>();
    else
        complaint = "an answer to a call that was never made";
}

} // namespace

std::optional<RpcMessage> rpcMessageOf(std::string_view text, std::string& complaint) {
    complaint.clear();
    Json object;
    try {
        object = Json::parse(text);
    } catch (const Json::parse_error& error) { // its own text may hold all that was sent
        complaint = "not JSON at its byte " + std::to_string(error.byte);
        return std::nullopt;
    } catch (const Json::out_of_range&) {
        complaint = "a number out of all bounds";
        return std::nullopt;
    }
    RpcMessage message;
    if (!object.is_object())
        complaint = "not an object";
    else if (object.contains("method"))
        readMethod(object, message, complaint);
    else if (object.contains("result") || object.contains("error"))
        readAnswer(object, message, complaint);
    else
        complaint = "neither \"method\" nor \"result\" nor \"error\"";
    return complaint.empty() ? std::optional<RpcMessage>(std::move(message)) : std::nullopt;
}

std::string requestText(const std::string& method, const Json& params, std::uint64_t id) {
    return R"({"method":)" + Json(method).dump() + R"(,"params":)" + params.dump() + R"(,"id":)" +
           std::to_string(id) + '}';
}

std::string answerText(const Json& result, const Json& error, const Json& id) {
    return R"({"result":)" + result.dump() + R"(,"error":)" + error.dump() + R"(,"id":)" + id.dump() + '}';
}

} // namespace store
