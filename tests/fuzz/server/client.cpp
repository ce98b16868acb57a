#include "fuzz/server/client.h"

#include "fuzz/input.h"

#include <utility>

namespace fuzz {

using velta::protocol::FrameReader;
using velta::protocol::ReplyKind;

namespace {

bool isWhole(const Answer& answer) {
    return answer.reply.kind != ReplyKind::Rows || answer.reply.rows.last;
}

} // namespace

void Client::send(std::string& bytes) {
    const std::size_t size = raw_.sendBytes(bytes);
    noteSent(bytes.data(), size);
    bytes.erase(0, size);
}

void Client::noteSent(const char* bytes, std::size_t size) {
    sent_.append(bytes, size);
    std::string_view message;
    while (!broken) {
        const FrameReader::Next next = sent_.next(message);
        if (next == FrameReader::Next::More)
            return;
        Request request;
        broken = next == FrameReader::Next::Broken || !decode(message, request);
        if (!broken)
            asked.push_back(std::move(request));
    }
}

void Client::finishSending() {
    raw_.finishSending();
    finished = true;
}

bool Client::receive() {
    if (deaf || raw_.atEnd)
        return false;
    raw_.receive();
    const bool any = raw_.atEnd || !raw_.answers.empty();
    takeAnswers();
    return any;
}

// The pieces of a table become one answer.
void Client::takeAnswers() {
    for (Answer& piece : raw_.answers) {
        if (answers_.empty() || isWhole(answers_.back())) {
            answers_.push_back(std::move(piece));
            continue;
        }
        Answer& whole = answers_.back();
        if (piece.reply.kind == ReplyKind::Failed && piece.reply.sequence == whole.reply.sequence) {
            whole = std::move(piece); // the rest could not be read
            continue;
        }
        require(piece.reply.kind == ReplyKind::Rows && piece.reply.sequence == whole.reply.sequence &&
                    piece.reply.rows.columns == whole.reply.rows.columns &&
                    piece.reply.rows.totalRows == whole.reply.rows.totalRows,
                "the pieces of a table come one behind the other");
        whole.reply.rows.last = piece.reply.rows.last;
        for (velta::ValueList& row : piece.rows)
            whole.rows.push_back(std::move(row));
    }
    raw_.answers.clear();
}

bool Client::hasAnswer() const {
    return !answers_.empty() && isWhole(answers_.front());
}

std::deque<velta::NameList> Client::takeNotices() {
    return std::exchange(raw_.notices, {});
}

} // namespace fuzz
