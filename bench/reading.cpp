// A table of plans, from the store into the daemon's plans.
//
// bench_reading SOCKET TABLE TIMES           reads it so often, for a count of exchanges
// bench_reading SOCKET TABLE TIMES DATABASE  times that beside SQLite, which reads a copy of the store's
// file,
//                                            and a socket that carries as many bytes

#include "bench/samples.h"
#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "handlers/timeplanhandler.h"

#include <cstdint>
#include <cstdlib>
#include <list>
#include <stdexcept>
#include <thread>

#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using bench::Clock;

constexpr unsigned answerTimeout = 60;  // seconds
constexpr unsigned transactionWait = 0; // milliseconds

template <typename Action>
void time(const std::string& figure, const char* who, int times, Action action) {
    bench::Samples samples;
    for (int i = 0; i < times; ++i) {
        const Clock::time_point begin = Clock::now();
        action();
        samples.add(bench::nanoseconds(Clock::now() - begin));
    }
    samples.print(figure, who, "ms", 1e-6);
}

// The cells of a database, each taken out as what it is.
class Sqlite {
public:
    Sqlite(const std::string& path, const std::string& table) {
        const std::string query = "SELECT * FROM \"" + table + "\" ORDER BY Id";
        if (sqlite3_open_v2(path.c_str(), &database_, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK ||
            sqlite3_prepare_v2(database_, query.c_str(), -1, &statement_, nullptr) != SQLITE_OK)
            throw std::runtime_error(path + ": " + sqlite3_errmsg(database_));
    }
    ~Sqlite() {
        sqlite3_finalize(statement_);
        sqlite3_close(database_);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;

    // The bytes of all cells.
    std::size_t read() {
        std::size_t bytes = 0;
        while (sqlite3_step(statement_) == SQLITE_ROW)
            for (int i = 0; i < sqlite3_column_count(statement_); ++i)
                bytes += cell(i);
        sqlite3_reset(statement_);
        return bytes;
    }

private:
    std::size_t cell(int i) {
        if (sqlite3_column_type(statement_, i) == SQLITE_INTEGER) {
            sum_ += sqlite3_column_int(statement_, i);
            return sizeof(int);
        }
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, i));
        return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_, i))).size();
    }

    sqlite3* database_ = nullptr;
    sqlite3_stmt* statement_ = nullptr;
    long long sum_ = 0;
};

// Another thread that answers a byte with many.
class BareSocket {
public:
    explicit BareSocket(std::size_t bytes) : bytes_(bytes) {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends_) != 0)
            throw std::runtime_error("socketpair");
        other_ = std::thread([this] { answer(); });
    }
    ~BareSocket() {
        ::shutdown(ends_[0], SHUT_RDWR);
        other_.join();
        close(ends_[0]);
        close(ends_[1]);
    }
    BareSocket(const BareSocket&) = delete;
    BareSocket& operator=(const BareSocket&) = delete;

    void read() {
        char chunk[64 * 1024];
        (void)!write(ends_[0], "", 1);
        for (std::size_t got = 0; got < bytes_;) {
            const ssize_t count = ::read(ends_[0], chunk, sizeof chunk);
            if (count <= 0)
                throw std::runtime_error("read");
            got += static_cast<std::size_t>(count);
        }
    }

private:
    void answer() {
        const std::string content(bytes_, 'x');
        char asked = 0;
        while (::read(ends_[1], &asked, 1) == 1)
            for (std::size_t sent = 0; sent < bytes_;) {
                const ssize_t count = send(ends_[1], content.data() + sent, bytes_ - sent, MSG_NOSIGNAL);
                if (count <= 0)
                    return;
                sent += static_cast<std::size_t>(count);
            }
    }

    std::size_t bytes_;
    int ends_[2] = {-1, -1};
    std::thread other_;
};

// What travels of a table: a type for each cell and a length for each text.
std::size_t wireBytes(orv::cfg::ConfigClient& client, const std::string& table) {
    unsigned rows = 0;
    std::size_t bytes = 0;
    (void)client.size(table, rows);
    for (unsigned i = 0; i < rows; ++i) {
        velta::ValueList row;
        (void)client.selectRow(table, i, row, {});
        for (const auto& [name, value] : row)
            bytes += 5 + (value.type() == velta::Value::Text ? value.getText().size() : 0);
    }
    client.dropSnapshots();
    return bytes;
}

void run(const std::string& socket, const std::string& table, int times, const char* database) {
    orv::cfg::Connection connection(socket, "bench", answerTimeout);
    if (const auto opened = connection.open(); !opened.ok())
        throw std::runtime_error(opened.strerror());
    orv::cfg::ConfigClient client(connection, transactionWait);
    std::list<std::string> tables = {table};

    time("reading for the first time", "horad", times, [&] {
        orv::horad::TimePlanHandler handler(tables);
        (void)handler.configChanged(client, table);
        client.dropSnapshots();
    });
    if (database == nullptr)
        return;
    orv::horad::TimePlanHandler handler(tables);
    (void)handler.configChanged(client, table);
    time("reading again", "horad", times, [&] {
        (void)handler.configChanged(client, table);
        client.dropSnapshots();
    });
    Sqlite sqlite(database, table);
    time("reading", "SQLite", times, [&] { (void)sqlite.read(); });
    BareSocket bare(wireBytes(client, table));
    time("reading", "socket", times, [&] { bare.read(); });
}

} // namespace

int main(int argc, char* argv[]) {
    const int times = argc == 4 || argc == 5 ? std::atoi(argv[3]) : 0;
    if (times < 1) {
        std::fputs("Usage: bench_reading SOCKET TABLE TIMES [DATABASE]\n", stderr);
        return EXIT_FAILURE;
    }
    try {
        run(argv[1], argv[2], times, argc == 5 ? argv[4] : nullptr);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "bench_reading: %s\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
