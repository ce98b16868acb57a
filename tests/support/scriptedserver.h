#pragma once

#include "velta/protocol/frame.h"
#include "velta/protocol/message.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fakes {

// The server end of the configuration store's protocol, doing what a test tells it: by default it answers
// from the tables that the test has set. It listens on a socket in a temporary directory of its own, in its
// own thread. Whatever is called on it has happened when the call returns.
class ScriptedServer {
public:
    using Request = velta::protocol::Request;
    using Reply = velta::protocol::Reply;
    using RequestKind = velta::protocol::RequestKind;
    // The bytes to answer with.
    using Answer = std::function<std::string(const Request&)>;

    ScriptedServer();
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    const std::string& socketPath() const { return socketPath_; }
    const std::string& directory() const { return directory_; }

    // All rows have the same columns.
    void setTable(const std::string& name, const std::vector<velta::ValueList>& rows);
    // Tables come in pieces of so many rows at most.
    void setRowsPerPiece(std::size_t rows);

    // What is set for a kind of request holds until answerAsUsual().
    void answer(RequestKind kind, Answer answer);
    void refuse(RequestKind kind, int code);
    void neverAnswer(RequestKind kind);
    // Closes the connection after so many bytes of the usual answer.
    void closeWithin(RequestKind kind, std::size_t bytes);
    void answerAsUsual(RequestKind kind);
    // The bytes of the usual answer.
    std::string usualAnswer(const Request& request);

    // To every client.
    void send(const std::string& bytes);
    void notify(const velta::NameList& tables);

    // Greets every new client with these bytes and closes.
    void turnAway(const std::string& bytes);
    void closeClients();
    void stopListening(); // closes the clients too
    void listenAgain();

    std::size_t count(RequestKind kind);
    // The last request of that kind; empty where there was none.
    Request last(RequestKind kind);

private:
    struct Client {
        int socket;
        velta::protocol::FrameReader frames;
    };
    struct Script {
        Answer answer;
        std::size_t closeAfter = std::string::npos;
    };

    void run();
    void perform(const std::function<void()>& task);
    void runTasks();
    void listen();
    void acceptClient();
    bool serve(Client& client);
    bool answerTo(Client& client, const Request& request);
    std::string rowsAnswer(const Request& request);
    std::string oneRow(const Request& request);

    std::string directory_;
    std::string socketPath_;
    int wake_ = -1;

    // Of the thread: everything below is touched by tasks that run in it.
    int listener_ = -1;
    std::deque<Client> clients_;
    std::map<std::string, std::vector<velta::ValueList>> tables_;
    std::size_t rowsPerPiece_ = 1000;
    std::map<RequestKind, Script> scripts_;
    std::string farewell_;
    std::vector<Request> requests_;
    bool stopping_ = false;

    std::mutex mutex_;
    std::condition_variable done_;
    const std::function<void()>* task_ = nullptr;
    std::thread thread_;
};

// One frame.
std::string frameOf(const velta::protocol::Reply& reply);
// An answer of a kind to a request, to be filled and framed.
velta::protocol::Reply replyTo(const velta::protocol::Request& request,
                               velta::protocol::ReplyKind kind = velta::protocol::ReplyKind::Done);
// A piece of rows; `cells` holds those of all rows, encoded.
std::string rowsFrame(const velta::protocol::Request& request, bool last, std::uint32_t totalRows,
                      std::uint32_t rows, const velta::NameList& columns, const std::string& cells);

} // namespace fakes
