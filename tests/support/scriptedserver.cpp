#include "support/scriptedserver.h"

#include "support/replykind.h"
#include "velta/protocol/wire.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace fakes {

using velta::protocol::FrameReader;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

constexpr std::chrono::seconds patience(10);

[[noreturn]] void fail(const char* what) {
    throw std::runtime_error(std::string("scripted server: ") + what);
}

// False where the client is gone or reads nothing for seconds.
bool sendAll(int socket, const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::string failureFrame(const Request& request, int code) {
    Reply reply = replyTo(request, ReplyKind::Failed);
    reply.result = velta::protocol::EResultCode(code, request.table);
    return frameOf(reply);
}

velta::NameList columnsOf(const std::vector<velta::ValueList>& rows) {
    velta::NameList columns;
    if (!rows.empty())
        for (const auto& cell : rows.front())
            columns.push_back(cell.first);
    return columns;
}

std::string cellsOf(const velta::ValueList& row) {
    std::string cells;
    velta::protocol::Writer writer(cells);
    for (const auto& cell : row)
        writer.value(cell.second);
    return cells;
}

} // namespace

ScriptedServer::ScriptedServer() {
    std::string pattern = "/tmp/scriptedserver.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        fail("no temporary directory");
    directory_ = pattern;
    socketPath_ = directory_ + "/socket";
    wake_ = eventfd(0, EFD_CLOEXEC);
    if (wake_ < 0)
        fail("no event descriptor");
    listen();
    thread_ = std::thread([this] { run(); });
}

ScriptedServer::~ScriptedServer() {
    stopListening();
    perform([this] { stopping_ = true; });
    thread_.join();
    close(wake_);
    (void)rmdir(directory_.c_str()); // a test may have left something there
}

void ScriptedServer::setTable(const std::string& name, const std::vector<velta::ValueList>& rows) {
    perform([&] { tables_[name] = rows; });
}

void ScriptedServer::setRowsPerPiece(std::size_t rows) {
    perform([&] { rowsPerPiece_ = rows; });
}

void ScriptedServer::answer(RequestKind kind, Answer answer) {
    perform([&] { scripts_[kind] = Script{std::move(answer)}; });
}

void ScriptedServer::refuse(RequestKind kind, int code) {
    answer(kind, [code](const Request& request) { return failureFrame(request, code); });
}

void ScriptedServer::neverAnswer(RequestKind kind) {
    answer(kind, [](const Request&) { return std::string(); });
}

void ScriptedServer::closeWithin(RequestKind kind, std::size_t bytes) {
    perform([&] { scripts_[kind] = Script{nullptr, bytes}; });
}

void ScriptedServer::answerAsUsual(RequestKind kind) {
    perform([&] { scripts_.erase(kind); });
}

std::string ScriptedServer::usualAnswer(const Request& request) {
    const ReplyKind kind = replyKindTo(request.kind);
    if (kind == ReplyKind::Rows)
        return rowsAnswer(request);
    Reply reply = replyTo(request, kind);
    reply.number = request.kind == RequestKind::Hello ? velta::protocol::version : 0;
    return frameOf(reply);
}

void ScriptedServer::send(const std::string& bytes) {
    perform([&] {
        for (const Client& client : clients_)
            (void)sendAll(client.socket, bytes); // if a client is gone, reading from it will tell
    });
}

void ScriptedServer::notify(const velta::NameList& tables) {
    Reply notice;
    notice.kind = ReplyKind::Notice;
    notice.names = tables;
    send(frameOf(notice));
}

void ScriptedServer::turnAway(const std::string& bytes) {
    perform([&] { farewell_ = bytes; });
}

void ScriptedServer::closeClients() {
    perform([&] {
        for (const Client& client : clients_)
            close(client.socket);
        clients_.clear();
    });
}

void ScriptedServer::stopListening() {
    closeClients();
    perform([&] {
        if (listener_ < 0)
            return;
        close(listener_);
        listener_ = -1;
        unlink(socketPath_.c_str());
    });
}

void ScriptedServer::listenAgain() {
    perform([&] { listen(); });
}

std::size_t ScriptedServer::count(RequestKind kind) {
    std::ptrdiff_t number = 0;
    perform([&] {
        number = std::count_if(requests_.begin(), requests_.end(),
                               [kind](const Request& request) { return request.kind == kind; });
    });
    return static_cast<std::size_t>(number);
}

Request ScriptedServer::last(RequestKind kind) {
    Request found;
    perform([&] {
        for (const Request& request : requests_)
            if (request.kind == kind)
                found = request;
    });
    return found;
}

void ScriptedServer::perform(const std::function<void()>& task) {
    std::unique_lock lock(mutex_);
    task_ = &task;
    eventfd_write(wake_, 1);
    if (!done_.wait_for(lock, patience, [this] { return task_ == nullptr; }))
        std::abort(); // the thread still uses the caller's stack, so the program can't go on
}

void ScriptedServer::runTasks() {
    eventfd_t ignored = 0;
    eventfd_read(wake_, &ignored);
    const std::lock_guard lock(mutex_);
    if (task_ == nullptr)
        return;
    (*task_)();
    task_ = nullptr;
    done_.notify_all();
}

void ScriptedServer::run() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr); // signals are the test's own business
    while (!stopping_) {
        std::vector<pollfd> descriptors = {{wake_, POLLIN, 0}, {listener_, POLLIN, 0}};
        for (const Client& client : clients_)
            descriptors.push_back({client.socket, POLLIN, 0});
        poll(descriptors.data(), descriptors.size(), -1);
        for (std::size_t i = clients_.size(); i-- > 0;)
            if (descriptors[i + 2].revents != 0 && !serve(clients_[i])) {
                close(clients_[i].socket);
                clients_.erase(clients_.begin() + static_cast<std::ptrdiff_t>(i));
            }
        if (descriptors[1].revents != 0)
            acceptClient();
        if (descriptors[0].revents != 0)
            runTasks();
    }
}

void ScriptedServer::listen() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(socketPath_.begin(), socketPath_.end(), address.sun_path);
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_, 16) != 0)
        fail("can't listen");
}

void ScriptedServer::acceptClient() {
    const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0)
        return;
    const timeval limit = {5, 0};
    (void)setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit); // without it: merely no deadline
    if (farewell_.empty()) {
        clients_.push_back(Client{client, {}});
        return;
    }
    (void)sendAll(client, farewell_); // the test sees what arrived
    close(client);
}

bool ScriptedServer::serve(Client& client) {
    std::array<char, 64 * 1024> bytes;
    const ssize_t count = recv(client.socket, bytes.data(), bytes.size(), 0);
    if (count <= 0)
        return false;
    client.frames.append(bytes.data(), static_cast<std::size_t>(count));
    std::string_view message;
    while (client.frames.next(message) == FrameReader::Next::Message) {
        Request request;
        if (!decode(message, request) || !answerTo(client, request))
            return false;
    }
    return true;
}

bool ScriptedServer::answerTo(Client& client, const Request& request) {
    requests_.push_back(request);
    const auto found = scripts_.find(request.kind);
    if (found == scripts_.end())
        return sendAll(client.socket, usualAnswer(request));
    if (found->second.answer)
        return sendAll(client.socket, found->second.answer(request));
    (void)sendAll(client.socket, usualAnswer(request).substr(0, found->second.closeAfter));
    return false;
}

std::string ScriptedServer::rowsAnswer(const Request& request) {
    const auto table = tables_.find(request.table);
    if (table == tables_.end())
        return failureFrame(request, code::unknownTable);
    if (request.kind != RequestKind::ReadTable)
        return oneRow(request);
    const std::vector<velta::ValueList>& rows = table->second;
    const auto total = static_cast<std::uint32_t>(rows.size());
    std::string frames;
    std::size_t begin = 0;
    do {
        const std::size_t end = std::min(begin + rowsPerPiece_, rows.size());
        std::string cells;
        for (std::size_t row = begin; row < end; ++row)
            cells += cellsOf(rows[row]);
        frames += rowsFrame(request, end == rows.size(), total, static_cast<std::uint32_t>(end - begin),
                            columnsOf(rows), cells);
        begin = end;
    } while (begin < rows.size());
    return frames;
}

std::string ScriptedServer::oneRow(const Request& request) {
    const std::vector<velta::ValueList>& rows = tables_[request.table];
    const auto byKey = [&](const velta::ValueList& row) {
        return row.getValue(request.keyColumn).getText() == request.key;
    };
    std::size_t index = request.number;
    if (request.kind == RequestKind::ReadKey)
        index = static_cast<std::size_t>(std::find_if(rows.begin(), rows.end(), byKey) - rows.begin());
    if (index >= rows.size())
        return failureFrame(request, code::noSuchRow);
    return rowsFrame(request, true, 1, 1, columnsOf(rows), cellsOf(rows[index]));
}

std::string frameOf(const Reply& reply) {
    std::string bytes;
    encode(reply, bytes);
    return bytes;
}

Reply replyTo(const Request& request, ReplyKind kind) {
    Reply reply;
    reply.kind = kind;
    reply.sequence = request.sequence;
    return reply;
}

std::string rowsFrame(const Request& request, bool last, std::uint32_t totalRows, std::uint32_t rows,
                      const velta::NameList& columns, const std::string& cells) {
    Reply reply = replyTo(request, ReplyKind::Rows);
    reply.rows.last = last;
    reply.rows.totalRows = totalRows;
    reply.rows.rows = rows;
    reply.rows.columns = columns;
    reply.rows.cells = cells;
    return frameOf(reply);
}

} // namespace fakes
