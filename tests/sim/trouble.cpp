#include "sim/happenings.h"

#include <map>
#include <string>

// A store in trouble: what it does to horad's operations, and for how long.
namespace sim {

using Operation = Tables::Operation;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

namespace {

constexpr unsigned turn = 500'000; // microseconds that a start waits before it is told that the store is busy
// A table that could not be read for a while is tried once in so long.
constexpr Microseconds patience = 62 * second;

constexpr Operation operations[] = {
    Operation::Size,      Operation::SelectRow, Operation::SelectRowByKey, Operation::WriteSingleRow,
    Operation::UpdateRow, Operation::Start,     Operation::Close,          Operation::Abort,
};
constexpr int failures[] = {code::failure, code::storageFailed, code::storageFull, code::readOnly,
                            code::outOfMemory};

// The fault is in force for that span, and horad is over it so much later.
void trouble(Household& household, Microseconds span, Tables::Fault fault, Microseconds after = 0) {
    Machine& machine = household.machine();
    const Microseconds end = machine.passed() + span;
    const int number = household.beginFault(
        [&machine, end, fault = std::move(fault)](Operation operation, const std::string& table) {
            return fault && machine.passed() < end ? fault(operation, table) : EResultCode();
        });
    machine.at(end + after, [&household, number] { household.endFault(number); });
}

// The next operation of that kind comes to this; nothing where there is none for so long.
void ambush(Household& household, Microseconds span, const std::function<bool(Operation)>& meant,
            const std::function<EResultCode()>& result) {
    auto done = std::make_shared<bool>(false);
    const int number = household.beginAmbush([=](Operation operation, const std::string&) {
        if (*done || !meant(operation))
            return EResultCode();
        *done = true;
        return result();
    });
    household.machine().after(span, [&household, number] { household.endAmbush(number); });
}

// What the real client asks the store for: rows come with the size of their table.
bool isExchange(Operation operation) {
    return operation != Operation::SelectRow;
}

void away(Household& household, Microseconds span) {
    household.loseConnection();
    household.setReachable(false);
    const int number = household.beginFault();
    household.machine().after(span, [&household, number] {
        household.setReachable(true);
        household.endFault(number);
    });
}

// An answer that got lost: the commit may have gone through or not.
int failureOf(Random& random, Operation operation) {
    if (operation == Operation::Close && random.chance(30))
        return code::outcomeUnknown;
    return random.among(failures);
}

std::map<std::string, Rows> contentOf(const Tables& tables) {
    std::map<std::string, Rows> content;
    for (const TableShape& table : schema())
        content[table.name] = tables.rows(table.name);
    return content;
}

} // namespace

void beBusy(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 4 * hour, 2 * day, [](Household& house, Random& chance) {
        const Microseconds span = chance.chance(70) ? chance.between(1 * second, 30 * second)
                                                    : chance.between(30 * second, 20 * minute);
        trouble(house, span, [&house](Operation operation, const std::string&) {
            if (operation != Operation::Start)
                return EResultCode();
            house.machine().sleep(turn);
            return EResultCode(code::busy);
        });
    });
}

void beSlow(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 8 * hour, 4 * day, [](Household& house, Random& chance) {
        const auto delay = static_cast<unsigned>(chance.between(1 * millisecond, 3 * second));
        trouble(house, chance.between(1 * minute, 10 * minute),
                [&house, delay](Operation operation, const std::string&) {
                    if (isExchange(operation))
                        house.machine().sleep(delay);
                    return EResultCode();
                });
    });
}

void failOnce(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 30 * minute, 10 * hour, [](Household& house, Random& chance) {
        const Operation broken = chance.chance(30) ? Operation::Close : chance.among(operations);
        const int failure = failureOf(chance, broken);
        ambush(
            house, 1 * day, [broken](Operation operation) { return operation == broken; },
            [failure] { return EResultCode(failure); });
    });
}

void failForAWhile(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 6 * hour, 3 * day, [](Household& house, Random& chance) {
        const Operation broken = chance.among(operations);
        const int failure = failureOf(chance, broken);
        const std::string only = chance.chance(50) ? chance.among(schema()).name : "";
        trouble(
            house,
            chance.chance(70) ? chance.between(1 * second, 60 * second)
                              : chance.between(1 * minute, 2 * hour),
            [broken, failure, only](Operation operation, const std::string& table) {
                const bool fails = operation == broken && (only.empty() || table.empty() || only == table);
                return fails ? EResultCode(failure) : EResultCode();
            },
            patience);
    });
}

void beAway(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 6 * hour, 3 * day, [](Household& house, Random& chance) {
        away(house,
             chance.chance(60) ? chance.between(0, 10 * second) : chance.between(10 * second, 1 * hour));
    });
}

// It takes a request and never answers: the client gives up after a minute, and lets the store be for
// another.
void beMute(Household& household, const std::shared_ptr<Random>& random) {
    constexpr unsigned answerTimeout = 60'000'000; // microseconds
    recur(household, random, 12 * hour, 5 * day, [](Household& house, Random& chance) {
        ambush(house, chance.between(1 * minute, 1 * day), isExchange, [&house] {
            house.machine().sleep(answerTimeout);
            away(house, 60 * second);
            return EResultCode(code::timedOut);
        });
    });
}

// What changes while nobody tells horad of it.
void loseNotices(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 6 * hour, 3 * day, [](Household& house, Random& chance) {
        const char* const table = chance.chance(50) ? "WlanTimePlans" : "TimePlans";
        if (const Row* const plan = anyRow(house, table, chance))
            house.change(table, orv::simulation::idOf(*plan), "TimePlanStatus",
                         1 - plan->getValue("TimePlanStatus").getInteger());
        house.change("WlanGlobals", 0, "WlanEnable", chance.number(0, 1));
        house.loseConnection();
    });
}

void restoreOlderState(Household& household, const std::shared_ptr<Random>& random) {
    auto backup = std::make_shared<std::map<std::string, Rows>>(contentOf(household.tables()));
    recur(household, random, 6 * hour, 4 * day,
          [backup](Household& house, Random&) { *backup = contentOf(house.tables()); });
    recur(household, random, 12 * hour, 6 * day, [backup](Household& house, Random& chance) {
        away(house, chance.between(1 * second, 60 * second));
        for (const auto& [table, rows] : *backup)
            house.edit(table, [rows = rows](Rows& current) { current = rows; });
    });
}

} // namespace sim
