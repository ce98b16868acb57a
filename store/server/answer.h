#pragma once

#include "store/storage/rows.h"
#include "velta/protocol/message.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <string>
#include <utility>

namespace store {

// The outcome of a request. Server::send() makes the reply of it.
struct Answer {
    enum class When {
        Now,
        Later,    // the request waits for the transaction or for its rows
        ThenClose // now, and the connection ends
    };

    Answer(velta::protocol::EResultCode failure) : result(std::move(failure)) {}
    Answer(int code) : result(code) {}
    Answer(velta::protocol::Reply success) : reply(std::move(success)) {}
    explicit Answer(When moment) : when(moment) {}

    static Answer done(std::uint32_t number = 0) {
        velta::protocol::Reply reply;
        reply.kind = velta::protocol::ReplyKind::Done;
        reply.number = number;
        return reply;
    }

    // A piece of a reading of `total` rows.
    static Answer piece(Rows&& rows, std::uint32_t total, bool last) {
        velta::protocol::Reply reply;
        reply.kind = velta::protocol::ReplyKind::Rows;
        reply.rows.last = last;
        reply.rows.totalRows = total;
        reply.rows.rows = rows.count;
        reply.rows.columns = std::move(rows.columns);
        Answer answer(std::move(reply));
        answer.cells = std::move(rows.cells);
        return answer;
    }

    velta::protocol::EResultCode result; // if it is a failure, the reply and the cells are not used
    velta::protocol::Reply reply;        // without its sequence and without cells
    std::string cells;                   // of rows
    When when = When::Now;
    bool isLogged = false; // that it is a failure
};

} // namespace store
