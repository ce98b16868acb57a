#include "bench/contestants.h"

#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "cfg/requests.h"

#include <cerrno>
#include <initializer_list>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr unsigned answerTimeout = 60;    // seconds
constexpr unsigned transactionWait = 500; // milliseconds, as long as horad's

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Commits in the way in which horad writes a status: it hears of each step before it goes on.
class Store : public Contestant {
public:
    explicit Store(const std::string& socket)
        : connection_(socket, "bench", answerTimeout), client_(connection_, transactionWait) {
        check(connection_.open());
    }

    void commit(bool value) override {
        check(client_.startTransaction());
        check(client_.updateRow("TimePlans", "Id", "1", status(value)));
        check(client_.closeTransaction());
    }

protected:
    static velta::ValueList status(bool value) {
        velta::Value cell(velta::Value::Switch);
        cell.setInteger(value ? 1 : 0);
        velta::ValueList values;
        values.add("TimePlanStatus", cell);
        return values;
    }

    orv::cfg::ConfigClient& client() { return client_; }

    static void check(const velta::protocol::EResultCode& result) {
        if (!result.ok())
            throw std::runtime_error("store: " + result.strerror());
    }

private:
    orv::cfg::Connection connection_;
    orv::cfg::ConfigClient client_;
};

// Commits in the way in which cfgctl sets a cell: all three steps in one exchange, as the peers' commits.
class StoreAtOnce : public Store {
public:
    using Store::Store;

    void commit(bool value) override {
        check(client().commitWrite(orv::cfg::requests::update("TimePlans", "Id", "1", status(value))));
    }
};

class Sqlite : public Contestant {
public:
    explicit Sqlite(const std::string& file) {
        check(sqlite3_open_v2(file.c_str(), &database_, SQLITE_OPEN_READWRITE, nullptr));
        run("PRAGMA journal_mode = WAL");
        run("PRAGMA synchronous = FULL");
        prepare("BEGIN IMMEDIATE", begin_);
        prepare("UPDATE TimePlans SET TimePlanStatus = ? WHERE Id = 1", update_);
        prepare("COMMIT", commit_);
    }
    ~Sqlite() override {
        for (sqlite3_stmt* statement : {begin_, update_, commit_})
            sqlite3_finalize(statement);
        sqlite3_close(database_);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;

    void commit(bool value) override {
        step(begin_);
        sqlite3_bind_int(update_, 1, value ? 1 : 0);
        step(update_);
        step(commit_);
    }

private:
    void run(const char* sql) { check(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr)); }
    void prepare(const char* sql, sqlite3_stmt*& statement) {
        check(sqlite3_prepare_v2(database_, sql, -1, &statement, nullptr));
    }
    void step(sqlite3_stmt* statement) {
        (void)sqlite3_step(statement);
        check(sqlite3_reset(statement));
    }
    void check(int result) const {
        if (result != SQLITE_OK)
            throw std::runtime_error(std::string("SQLite: ") + sqlite3_errmsg(database_));
    }

    sqlite3* database_ = nullptr;
    sqlite3_stmt* begin_ = nullptr;
    sqlite3_stmt* update_ = nullptr;
    sqlite3_stmt* commit_ = nullptr;
};

// What the disk alone takes: a page is appended and synced.
class BareFile : public Contestant {
public:
    explicit BareFile(const std::string& path)
        : file_(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
        if (file_ < 0)
            fail(path);
    }
    ~BareFile() override { close(file_); }
    BareFile(const BareFile&) = delete;
    BareFile& operator=(const BareFile&) = delete;

    void commit(bool value) override {
        page_.front() = value ? '1' : '0';
        if (write(file_, page_.data(), page_.size()) < 0 || fdatasync(file_) != 0)
            fail("fdatasync");
    }

private:
    int file_;
    std::string page_ = std::string(4096, ' ');
};

class Socket {
public:
    explicit Socket(const std::string& path) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            fail(path);
    }
    ~Socket() { close(socket_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    void put(const std::string& bytes) const {
        if (send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
            fail("send");
    }
    std::string get() const {
        char bytes[4096];
        const ssize_t count = read(socket_, bytes, sizeof bytes);
        if (count <= 0)
            throw std::runtime_error("the peer closed the connection");
        return std::string(bytes, static_cast<std::size_t>(count));
    }

private:
    int socket_;
};

std::string redisCommand(std::initializer_list<std::string> words) {
    std::string bytes = '*' + std::to_string(words.size()) + "\r\n";
    for (const std::string& word : words)
        bytes += '$' + std::to_string(word.size()) + "\r\n" + word + "\r\n";
    return bytes;
}

class Redis : public Contestant {
public:
    explicit Redis(const std::string& path) : socket_(path) {}

    void commit(bool value) override { ask(set(value), "+OK\r\n"); }

protected:
    static std::string set(bool value) {
        return redisCommand({"SET", "TimePlans.1.Stat", value ? "1" : "0"});
    }

    void ask(const std::string& command, const std::string& expected) const {
        socket_.put(command);
        std::string answer;
        while (answer.size() < expected.size())
            answer += socket_.get();
        if (answer != expected)
            throw std::runtime_error("redis: " + answer);
    }

private:
    Socket socket_;
};

// A transaction as the store's clients have it: it begins, a write is answered, it commits.
class RedisInThree : public Redis {
public:
    using Redis::Redis;

    void commit(bool value) override {
        ask(begin_, "+OK\r\n");
        ask(set(value), "+QUEUED\r\n");
        ask(end_, "*1\r\n+OK\r\n");
    }

private:
    const std::string begin_ = redisCommand({"MULTI"});
    const std::string end_ = redisCommand({"EXEC"});
};

// Its database has a table TimePlans with a column Status; JSON-RPC.
class Ovsdb : public Contestant {
public:
    explicit Ovsdb(const std::string& path) : socket_(path) {
        const std::string answer =
            transact(R"({"op": "insert", "table": "TimePlans", "row": {"Status": 0}})");
        const std::size_t at = answer.find(R"(["uuid",")") + 9;
        uuid_ = answer.substr(at, 36);
    }

    void commit(bool value) override {
        (void)transact(R"({"op": "update", "table": "TimePlans", "where": [["_uuid", "==", ["uuid", ")" +
                       uuid_ + R"("]]], "row": {"Status": )" + (value ? "1" : "0") + "}}");
    }

private:
    std::string transact(const std::string& operation) {
        socket_.put(R"({"method": "transact", "id": 1, "params": ["Bench", )" + operation +
                    R"(, {"op": "commit", "durable": true}]})");
        for (;;) {
            const std::string message = next();
            if (message.find(R"("error":null)") != std::string::npos &&
                message.find(R"("error":")") == std::string::npos)
                return message;
            if (message.find(R"("echo")") == std::string::npos)
                throw std::runtime_error("ovsdb: " + message);
            socket_.put(R"({"id": "echo", "result": [], "error": null})"); // a keep-alive question
        }
    }

    // The next whole object. No text in these answers has a brace.
    std::string next() {
        for (;;) {
            int depth = 0;
            for (std::size_t i = 0; i < buffer_.size(); ++i) {
                depth += buffer_[i] == '{' ? 1 : buffer_[i] == '}' ? -1 : 0;
                if (buffer_[i] == '}' && depth == 0) {
                    const std::string message = buffer_.substr(0, i + 1);
                    buffer_.erase(0, i + 1);
                    return message;
                }
            }
            buffer_ += socket_.get();
        }
    }

    Socket socket_;
    std::string buffer_;
    std::string uuid_;
};

} // namespace

std::unique_ptr<Contestant> makeContestant(const std::string& who, const std::string& where) {
    if (who == "horad")
        return std::make_unique<Store>(where);
    if (who == "horad at once")
        return std::make_unique<StoreAtOnce>(where);
    if (who == "SQLite")
        return std::make_unique<Sqlite>(where);
    if (who == "fdatasync")
        return std::make_unique<BareFile>(where);
    if (who == "redis")
        return std::make_unique<Redis>(where);
    if (who == "redis in 3")
        return std::make_unique<RedisInThree>(where);
    if (who == "ovsdb")
        return std::make_unique<Ovsdb>(where);
    throw std::runtime_error("nobody is called " + who);
}

} // namespace bench
