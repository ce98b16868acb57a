#include "fuzz/server/observer.h"

#include "fuzz/input.h"
#include "support/replykind.h"

#include <algorithm>
#include <utility>

namespace fuzz {

using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

constexpr std::uint32_t leaveOutOwn = 1;

bool isDone(const Answer& answer) {
    return answer.reply.kind == ReplyKind::Done;
}

bool failedWith(const Answer& answer, int code) {
    return answer.reply.kind == ReplyKind::Failed && answer.reply.result.code() == code;
}

bool isGrant(const Client& client) {
    return client.hasAnswer() && !client.asked.empty() && client.asked.front().kind == RequestKind::Begin &&
           isDone(client.answer());
}

Client::Time now() {
    return std::chrono::steady_clock::now();
}

} // namespace

std::size_t Observer::connected() const {
    return places - static_cast<std::size_t>(std::count(clients_.begin(), clients_.end(), nullptr));
}

void Observer::leave(std::size_t place) {
    clients_[place].reset();
    if (owner_ == place)
        owner_.reset();
}

void Observer::look(store::Database& database) {
    ++looks_;
    const Version before = committed_;
    versions_ = {before};
    committers_.clear();
    owners_.clear();
    busy_.clear();
    readings_.clear();
    expireOwner();
    takeAnswers();
    if (!tracking_)
        return;
    require(cellsOf(database) == committed_->cells,
            "what is committed is what was committed, and nothing else");
    checkReadings();
    for (const std::size_t place : busy_)
        require(owners_.size() > owners_.count(place) || anotherKeepsItsPlace(place),
                "only who would have to wait for another is told busy");
    for (std::size_t place = 0; place < places; ++place)
        if (clients_[place]) {
            checkNotices(place, before->tables);
            checkAtRest(place);
        }
}

void Observer::expireOwner() {
    if (!owner_)
        return;
    owners_.insert(*owner_);
    if (now() < ownedUntil_)
        return;
    clients_[*owner_]->expired = true;
    owner_.reset();
}

// A transaction that ends lets the next one begin: they are followed in that order.
void Observer::takeAnswers() {
    bool any = true;
    while (any) {
        any = false;
        for (std::size_t place = 0; place < places; ++place)
            any = takeAnswersOf(place) || any;
        any = any || grantNext();
    }
}

bool Observer::takeAnswersOf(std::size_t place) {
    if (!clients_[place])
        return false;
    Client& client = *clients_[place];
    bool any = false;
    while (client.hasAnswer() && !(tracking_ && isGrant(client))) {
        takeOne(place);
        any = true;
    }
    return drop(place) || any;
}

bool Observer::grantNext() {
    std::vector<std::size_t> granted;
    for (std::size_t place = 0; place < places; ++place)
        if (clients_[place] && isGrant(*clients_[place]))
            granted.push_back(place);
    if (granted.empty())
        return false;
    require(!owner_, "a transaction has one owner");
    if (granted.size() > 1)
        loseTrack(); // the order in which they had it is unknown
    else
        own(granted[0]);
    return true;
}

void Observer::own(std::size_t place) {
    takeOne(place);
    owner_ = place;
    owners_.insert(place);
    clients_[place]->keepsPlaceUntil = {};
    ownedUntil_ = now() + options_.transaction.held;
    working_ = committed_->tables;
}

void Observer::takeOne(std::size_t place) {
    Client& client = *clients_[place];
    const Answer answer = client.answer();
    client.dropAnswer();
    if (answer.reply.sequence == 0 && failedWith(answer, code::tooManyClients)) {
        require(client.tooMany || !tracking_, "nobody is turned away without need");
        client.refused = true;
        return;
    }
    require(!client.asked.empty(), "an answer has a request");
    const Request request = client.asked.front();
    client.asked.pop_front();
    client.waitsSince.reset();
    require(answer.reply.sequence == request.sequence, "answers come in the order of the requests");
    require(answer.reply.kind == fakes::replyKindTo(request.kind) || answer.reply.kind == ReplyKind::Failed,
            "an answer is of the kind that the request asks for");
    if (tracking_)
        judge(place, request, answer);
}

void Observer::judge(std::size_t place, const Request& request, const Answer& answer) {
    Client& client = *clients_[place];
    const bool own = owner_ == place;
    if (!client.greeted) {
        judgeGreeting(client, request, answer);
        return;
    }
    require(failedWith(answer, code::transactionExpired) == client.expired,
            "who lost its transaction hears of it with the next answer, once");
    if (client.expired) {
        client.expired = false;
        return;
    }
    switch (request.kind) {
    case RequestKind::Hello:
        require(failedWith(answer, code::badMessage), "one greets once");
        break;
    case RequestKind::Tables:
        require(answer.reply.tables.size() == committed_->tables.size(), "all tables are listed");
        break;
    case RequestKind::Columns:
        judgeColumns(request, answer);
        break;
    case RequestKind::SharedColumns:
        judgeSharedColumns(request, answer);
        break;
    case RequestKind::Describe:
        judgeDescription(request, answer);
        break;
    case RequestKind::ReadTable:
    case RequestKind::ReadRow:
    case RequestKind::ReadKey:
        judgeRead(own, request, answer);
        break;
    case RequestKind::Subscribe:
        judgeSubscribe(client, request);
        break;
    case RequestKind::Begin:
        if (!isDone(answer))
            judgeRefusedBegin(place, request, answer);
        break;
    case RequestKind::Commit:
    case RequestKind::Abort:
        judgeEnd(place, request, answer);
        break;
    case RequestKind::WriteSingle:
    case RequestKind::Update:
    case RequestKind::Insert:
    case RequestKind::Remove:
        judgeWrite(own, request, answer);
        break;
    }
}

void Observer::judgeGreeting(Client& client, const Request& request, const Answer& answer) {
    client.greeted = request.kind == RequestKind::Hello && request.number == velta::protocol::version;
    client.refused = !client.greeted;
    require(client.greeted ? isDone(answer) && answer.reply.number == velta::protocol::version
                           : failedWith(answer, code::wrongVersion),
            "who greets as it should comes in, and nobody else");
}

void Observer::judgeColumns(const Request& request, const Answer& answer) const {
    const auto table = committed_->tables.find(request.table);
    require(table == committed_->tables.end()
                ? failedWith(answer, code::unknownTable)
                : answer.reply.columns.size() == table->second.shape->columns.size(),
            "all columns of a table are listed");
}

void Observer::judgeSharedColumns(const Request& request, const Answer& answer) const {
    const auto table = committed_->tables.find(request.table);
    require(table == committed_->tables.end()
                ? failedWith(answer, code::unknownTable)
                : answer.reply.columns.size() <= table->second.shape->columns.size(),
            "no more columns are shared than there are");
}

void Observer::judgeDescription(const Request& request, const Answer& answer) const {
    const auto table = committed_->tables.find(request.table);
    require(table == committed_->tables.end()
                ? failedWith(answer, code::unknownTable)
                : answer.reply.descriptions.size() == table->second.shape->columns.size(),
            "all columns of a table are described");
}

void Observer::judgeRead(bool own, const Request& request, const Answer& answer) {
    if (own)
        require(answers(working_, request, answer), "the owner of a transaction reads what it wrote");
    else
        readings_.push_back({request, answer});
}

void Observer::judgeSubscribe(Client& client, const Request& request) {
    client.subscribed.clear();
    for (const std::string& name : request.names)
        if (committed_->tables.count(name) != 0)
            client.subscribed.insert(name);
    client.leaveOutOwn = (request.number & leaveOutOwn) != 0;
    client.subscribedNow = true;
}

void Observer::judgeRefusedBegin(std::size_t place, const Request& request, const Answer& answer) {
    if (owner_ == place) {
        require(failedWith(answer, code::transactionOpen), "a client has one transaction");
        return;
    }
    require(failedWith(answer, code::busy), "a transaction begins or is busy");
    busy_.push_back(place);
    clients_[place]->keepsPlaceUntil = request.number == 0 ? Time{} : now() + options_.transaction.kept;
}

// If so, the free transaction may be reserved for that client.
bool Observer::anotherKeepsItsPlace(std::size_t place) const {
    for (std::size_t other = 0; other < places; ++other)
        if (other != place && clients_[other] && now() < clients_[other]->keepsPlaceUntil)
            return true;
    return false;
}

void Observer::judgeEnd(std::size_t place, const Request& request, const Answer& answer) {
    if (owner_ != place) {
        require(failedWith(answer, code::noTransaction), "only the owner of a transaction ends it");
        return;
    }
    require(isDone(answer), "the owner of a transaction can end it");
    owner_.reset();
    if (request.kind == RequestKind::Abort)
        return;
    committed_ = makeVersion(working_);
    versions_.push_back(committed_);
    committers_.push_back(place);
}

void Observer::judgeWrite(bool own, const Request& request, const Answer& answer) {
    require(own != failedWith(answer, code::noTransaction), "only the owner of a transaction writes");
    if (isDone(answer)) {
        require(write(working_, request, answer.reply.number), "what was written could be");
        return;
    }
    const auto table = working_.find(request.table);
    require(failedWith(answer, code::unknownTable) == (own && table == working_.end()),
            "a table that is none can't be written");
    if (failedWith(answer, code::noSuchRow) && request.kind != RequestKind::WriteSingle)
        require(!table->second.rowWith(request.keyColumn, request.key), "a row that is there is found");
}

// True when the client is gone, and with it its transaction.
bool Observer::drop(std::size_t place) {
    const Client& client = *clients_[place];
    if (!client.atEnd() || client.hasAnswer())
        return false;
    if (tracking_)
        checkDropped(client);
    leave(place);
    return true;
}

void Observer::checkDropped(const Client& client) const {
    const bool silent = !client.greeted && now() >= client.connected + options_.greeting;
    require(client.broken || client.finished || client.refused || silent,
            "a client that does its part stays connected");
    require(client.asked.empty() || client.refused, "what was asked before the end is answered");
}

// Within one look it is unknown which version a reading saw, but it must be one of them.
void Observer::checkReadings() const {
    for (const Reading& reading : readings_)
        require(std::any_of(versions_.begin(), versions_.end(),
                            [&reading](const Version& version) {
                                return answers(version->tables, reading.request, reading.answer);
                            }),
                "everybody else reads the last commit");
}

void Observer::checkNotices(std::size_t place, const Tables& before) {
    Client& client = *clients_[place];
    std::set<std::string> told;
    for (const velta::NameList& notice : client.takeNotices()) {
        require(!notice.empty(), "a notice names a table");
        told.insert(notice.begin(), notice.end());
    }
    require(told.empty() || !committers_.empty(), "without a commit there is no notice");
    if (std::exchange(client.subscribedNow, false))
        return; // it may have subscribed before or after the commit
    const bool own = std::count(committers_.begin(), committers_.end(), place) != 0;
    for (const auto& [name, table] : committed_->tables) {
        const bool wanted = client.subscribed.count(name) != 0;
        const bool changed = table.differsFrom(before.at(name));
        require(wanted || told.count(name) == 0, "nobody is told of what it did not ask for");
        require(!wanted || !changed || (own && client.leaveOutOwn) || told.count(name) != 0,
                "everybody is told of a change");
        require(changed || committers_.size() != 1 || told.count(name) == 0,
                "what is as before is told to nobody");
    }
    require(told.empty() || !own || !client.leaveOutOwn || committers_.size() > 1,
            "nobody is told of its own commits that does not want it");
}

void Observer::checkAtRest(std::size_t place) {
    const Client& client = *clients_[place];
    const bool silent = !client.greeted && now() >= client.connected + options_.greeting;
    require(!silent && !client.tooMany && !client.refused, "who has to be turned away is");
    require(!client.hasAnswer(), "every answer was taken");
    if (!client.asked.empty())
        checkWaiting(place);
    else
        require(!client.broken && !client.finished, "who is broken or has finished is disconnected");
}

void Observer::checkWaiting(std::size_t place) {
    Client& client = *clients_[place];
    const Request& request = client.asked.front();
    require(client.greeted && request.kind == RequestKind::Begin && owner_ != place &&
                (owner_ || anotherKeepsItsPlace(place)),
            "all is answered but who waits for its turn");
    if (!client.waitsSince) {
        client.waitsSince = looks_;
        client.waitsUntil = now() + std::min<std::chrono::milliseconds>(
                                        std::chrono::milliseconds(request.number), options_.turn);
    }
    require(now() < client.waitsUntil, "nobody waits longer than it said");
}

} // namespace fuzz
