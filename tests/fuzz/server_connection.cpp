// A store and up to four of its clients. The input is a program: what the clients do one after the other,
// well behaved or not, and what time passes meanwhile.
#include "fuzz/input.h"
#include "fuzz/server/observer.h"
#include "fuzz/server/steadyclock.h"
#include "orv/sysloglevel.h"
#include "store/log.h"
#include "store/server/server.h"
#include "support/temporarydirectory.h"

#include <limits>

namespace {

using fuzz::Client;
using fuzz::Input;
using fuzz::Observer;
using fuzz::require;
using velta::Value;
using velta::protocol::Request;
using velta::protocol::RequestKind;

constexpr int stepsLimit = 40;
constexpr int quietRounds = 4; // after which even the largest answer is complete
constexpr std::size_t serverReads = 16 * 1024;
constexpr std::size_t longText = 4096;
constexpr int largeRows = 8;
constexpr int largeRowsLimit = 3 * largeRows; // in one run

store::ServerOptions smallOptions() {
    store::ServerOptions options;
    options.places = {Observer::places - 1, 0, Observer::places - 1}; // so that one client is turned away
    options.transaction.silent = options.transaction.held; // the observer does not know who was silent
    options.readings.piece = 4 * 1024;
    options.readings.kept = 64 * 1024;
    return options;
}

// Serves all runs; each puts back what it changed.
struct House {
    House() {
        store::log::open(false, false);
        ORV_Sysloglevel_changeTracelevel("cfgserver", 0); // nothing
    }

    TemporaryDirectory directory;
    const std::string path = directory.path("socket");
    velta::net::EventDispatcher dispatcher;
    store::Database database{schemaOf(testTables), ""};
    store::ListeningSocket listening{path, std::nullopt};
    store::Server server{dispatcher, database, listening, smallOptions()};
    const fuzz::Version fresh = fuzz::makeVersion(fuzz::committedTables(database));
};

template <std::size_t Size>
std::string pick(Input& input, const char* const (&texts)[Size]) {
    const std::uint8_t which = input.byte();
    return which < Size ? texts[which] : input.text(which & 15);
}

std::string tableFrom(Input& input) {
    return pick(input, {"Plans", "Globals", "Other", "Nowhere"});
}

std::string columnFrom(Input& input) {
    return pick(input, {"Id", "Name", "Status", "Level", "Runs", "Enable", "Text", "Nothing"});
}

std::string keyFrom(Input& input) {
    return pick(input, {"1", "2", "3", "none", "it's", "0", "-1", "4294967295", "+1", "01", "a"});
}

Value numberFrom(Input& input, unsigned type) {
    constexpr int numbers[] = {
        0, 1, 2, 7, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
    const std::uint8_t which = input.byte();
    return numberValue(type, which < std::size(numbers) ? numbers[which]
                                                        : static_cast<std::int32_t>(input.number(4)));
}

Value textFrom(Input& input) {
    const std::uint8_t which = input.byte();
    if (which >= 254)
        return textValue(std::string(longText + 255 - which, 'x')); // as long as may be, and one more
    return textValue(which < 16 ? std::string(1, static_cast<char>('a' + which)) : input.text(which & 15));
}

velta::ValueList cellsFrom(Input& input) {
    velta::ValueList cells;
    for (int left = input.byte() & 3; left > 0; --left) {
        const std::string column = columnFrom(input);
        const unsigned type = input.byte() % 5;
        cells.add(column, type == Value::Text ? textFrom(input) : numberFrom(input, type));
    }
    return cells;
}

// Takes the fields that a request of the kind carries from the input.
Request requestFrom(Input& input, RequestKind kind) {
    Request request = ask::plain(kind);
    switch (kind) {
    case RequestKind::Hello:
        request.key = "fuzz";
        request.number = input.byte() & 3;
        break;
    case RequestKind::Columns:
    case RequestKind::Describe:
    case RequestKind::SharedColumns:
    case RequestKind::ReadTable:
        request.table = tableFrom(input);
        break;
    case RequestKind::ReadRow:
        request.table = tableFrom(input);
        request.number = input.byte();
        break;
    case RequestKind::Subscribe:
        request.number = input.byte() & 1;
        for (int left = input.byte() & 3; left > 0; --left)
            request.names.push_back(tableFrom(input));
        break;
    case RequestKind::Begin:
        request.number = static_cast<std::uint32_t>(input.byte()) * 500;
        break;
    case RequestKind::WriteSingle:
        request.table = tableFrom(input);
        request.number = input.byte() & 1;
        request.values = cellsFrom(input);
        break;
    case RequestKind::Insert:
        request.table = tableFrom(input);
        request.values = cellsFrom(input);
        break;
    case RequestKind::ReadKey:
    case RequestKind::Update:
    case RequestKind::Remove:
        request.table = tableFrom(input);
        request.keyColumn = columnFrom(input);
        request.key = keyFrom(input);
        if (kind == RequestKind::Update)
            request.values = cellsFrom(input);
        break;
    case RequestKind::Tables:
    case RequestKind::Commit:
    case RequestKind::Abort:
        break;
    }
    return request;
}

class Run {
public:
    Run(House& house, Input& input)
        : house_(house), input_(input), observer_(clients_, smallOptions(), house.fresh) {}

    void all() {
        for (int step = 0; step < stepsLimit && !input_.atEnd(); ++step) {
            const std::uint8_t what = input_.byte();
            place_ = what >> 6;
            doStep(what & 63);
            look();
        }
        end();
    }

private:
    // From 1 on the kinds of requests, as in the protocol.
    enum Step : unsigned {
        Connect = 0,
        LastRequest = 14,
        Raw,        // bytes as they stand
        RawMessage, // the same in a frame
        Collect,    // holds back what it sends, until the next Collect
        SendPart,   // of that
        SendTwice,  // of that, leaving it there
        LeaveAway,  // a part of that
        Close,
        FinishSending,
        Listen, // reads what comes, or stops reading
        PassTime,
        InsertLarge, // so that a few answers with them do not fit into a socket
        Describe,
        SharedColumns,
    };

    Client& client() {
        if (!clients_[place_])
            clients_[place_] =
                std::make_unique<Client>(house_.path, observer_.connected() >= smallOptions().places.all);
        return *clients_[place_];
    }

    void doStep(unsigned step) {
        if (!clients_[place_] && step != Connect && step != PassTime)
            sendRequest(ask::hello());
        if (step >= 1 && step <= LastRequest)
            sendRequest(requestFrom(input_, static_cast<RequestKind>(step)));
        else
            doOther(static_cast<Step>(step));
    }

    void doOther(Step step) {
        switch (step) {
        case Connect:
            (void)client();
            break;
        case Raw:
            send(input_.text(input_.byte()));
            break;
        case RawMessage:
            sendFramed(input_.text(input_.byte()));
            break;
        case Collect:
            collect();
            break;
        case SendPart:
            sendPart(true);
            break;
        case SendTwice:
            sendPart(false);
            break;
        case LeaveAway:
            client().outbox.erase(0, input_.byte());
            break;
        case Close:
            observer_.leave(place_);
            break;
        case FinishSending:
            client().finishSending();
            break;
        case Listen:
            client().deaf = !client().deaf;
            observer_.loseTrack();
            break;
        case PassTime:
            fuzz::passTime(std::chrono::milliseconds(250) * input_.byte());
            break;
        case InsertLarge:
            insertLarge();
            break;
        case Describe:
            sendRequest(requestFrom(input_, RequestKind::Describe));
            break;
        case SharedColumns:
            sendRequest(requestFrom(input_, RequestKind::SharedColumns));
            break;
        case LastRequest:
            break;
        }
    }

    void sendRequest(Request request) {
        request.sequence = ++sequence_;
        std::string bytes;
        encode(request, bytes);
        send(bytes);
    }

    void sendFramed(const std::string& message) {
        std::string bytes;
        const std::size_t begin = velta::protocol::beginFrame(bytes);
        bytes += message;
        velta::protocol::endFrame(bytes, begin);
        send(bytes);
    }

    void collect() {
        client().collecting = !client().collecting;
        if (!client().collecting)
            send(std::exchange(client().outbox, {}));
    }

    void sendPart(bool drop) {
        std::string& outbox = client().outbox;
        const std::string part = outbox.substr(0, input_.byte());
        if (drop)
            outbox.erase(0, part.size());
        sendNow(part);
    }

    void send(const std::string& bytes) {
        if (client().collecting)
            client().outbox += bytes;
        else
            sendNow(bytes);
    }

    // What the server does not take is lost.
    void sendNow(std::string bytes) {
        std::size_t left = bytes.size() + 1;
        while (!bytes.empty() && bytes.size() < left) {
            left = bytes.size();
            client().send(bytes);
            sent_ += left - bytes.size();
            if (!bytes.empty())
                comeToRest();
        }
    }

    void insertLarge() {
        if (largeRows_ == largeRowsLimit)
            return;
        largeRows_ += largeRows;
        const std::string text(longText, static_cast<char>('a' + input_.byte() % 26));
        std::string bytes;
        for (int i = 0; i < largeRows; ++i) {
            Request request = ask::insert("Plans", cell("Name", textValue(text)));
            request.sequence = ++sequence_;
            encode(request, bytes);
        }
        send(bytes);
    }

    void comeToRest() { comeToRest(clients_); }

    void comeToRest(Observer::Clients& clients) {
        std::size_t left = quietRounds + std::exchange(sent_, 0) / serverReads;
        for (const std::unique_ptr<Client>& each : clients)
            if (each)
                left += each->asked.size(); // the answers of a transaction may come together, with the last
        while (left > 0) {
            --left;
            house_.server.handleEvents(0);
            for (const std::unique_ptr<Client>& each : clients)
                if (each && each->receive())
                    left = std::max<std::size_t>(left, quietRounds);
        }
    }

    void look() {
        comeToRest();
        observer_.look(house_.database);
    }

    // Whatever was done: when all clients are gone, nobody owns the transaction, and the next client is
    // served.
    void end() {
        for (std::size_t place = 0; place < Observer::places; ++place)
            observer_.leave(place);
        look();
        Observer::Clients clients;
        Observer observer(clients, smallOptions(), fuzz::makeVersion(fuzz::committedTables(house_.database)));
        Client& next = *(clients[0] = std::make_unique<Client>(house_.path, false));
        std::string bytes;
        for (const Request& request : {ask::hello(), ask::begin(0), ask::plain(RequestKind::Abort)})
            encode(request, bytes);
        next.send(bytes);
        comeToRest(clients);
        observer.look(house_.database);
        require(clients[0] && next.asked.empty(), "the next client is served");
        clients[0].reset();
        comeToRest(clients);
        if (fuzz::cellsOf(house_.database) != house_.fresh->cells)
            fuzz::restore(house_.database, house_.fresh->tables);
    }

    House& house_;
    Input& input_;
    Observer::Clients clients_;
    Observer observer_;
    std::size_t place_ = 0;
    std::uint32_t sequence_ = 0;
    std::size_t sent_ = 0;
    int largeRows_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static House house;
    Input input(data, size);
    Run(house, input).all();
    return 0;
}
