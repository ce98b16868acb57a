#pragma once

#include "sim/oracle.h"
#include "sim/schema.h"

#include <cstdlib>
#include <ctime>
#include <list>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace sim {

inline constexpr std::int64_t aSecond = orv::simulation::Machine::second;

// An oracle over tables, a clock and a line that a test moves by hand: what horad does, the test does.
class OracleWorld {
public:
    static constexpr std::time_t mondayNoon = 1772449200; // 2026-03-02 12:00 in Berlin

    OracleWorld() {
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
        for (const TableShape& table : schema()) {
            tables.edit(table.name, table.hasManyRows() ? Rows{} : Rows{table.newRow()});
        }
        change("wexd", 0, "Enable", 1);
        tables.onCommit(
            [this](const orv::simulation::Tables::Changes& changes) { oracle.committed(changes); });
        oracle.rebooted();
    }

    // An iteration in which nothing happens, or what horad does in it.
    template <typename Work>
    void pass(const Work& work, int seconds = 2) {
        machine.passUntil(machine.passed() + seconds * aSecond);
        work();
        view.passesSinceTrouble = disturbed && !onlyEdited ? 0 : view.passesSinceTrouble + 1;
        view.passesSinceFault = disturbed ? 0 : view.passesSinceFault + 1;
        onlyEdited = false;
        disturbed = false;
        oracle.passed();
    }
    void pass(int seconds = 2) {
        pass([] {}, seconds);
    }
    void settle() {
        for (int i = 0; i < 3; ++i)
            pass();
    }
    void setClock(const std::string& dateAndTime) {
        machine.setClock(momentOf(dateAndTime) * aSecond);
        disturbed = true;
    }
    static std::time_t momentOf(const std::string& dateAndTime) {
        std::tm local{};
        EXPECT_NE(strptime(dateAndTime.c_str(), "%Y-%m-%d %H:%M:%S", &local), nullptr);
        local.tm_isdst = -1;
        return std::mktime(&local);
    }
    // Undisturbed up to that moment, in steps of an idle loop; the last one ends there.
    void passUntil(const std::string& dateAndTime) {
        const std::time_t end = momentOf(dateAndTime);
        while (machine.time() + 2 <= end)
            pass();
        if (machine.time() < end)
            pass(static_cast<int>(end - machine.time()));
    }

    // Somebody else's commit.
    void insert(const std::string& table, const Row& row) {
        Rows rows = tables.rows(table);
        rows.push_back(row);
        tables.edit(table, rows);
        disturbed = true;
    }
    template <typename Cell>
    void change(const std::string& table, int id, const std::string& column, const Cell& cell) {
        Rows rows = tables.rows(table);
        for (Row& row : rows)
            if (orv::simulation::idOf(row) == id)
                set(row, column, cell);
        tables.edit(table, rows);
        disturbed = true;
    }

    // Horad's commits.
    template <typename Work>
    void commit(const Work& work) {
        ASSERT_TRUE(tables.startTransaction().ok());
        work();
        ASSERT_TRUE(tables.closeTransaction().ok());
    }
    template <typename Cell>
    void write(const std::string& table, int id, const std::string& column, const Cell& cell) {
        Row row;
        row.add(column, valueOf(cell));
        const auto result = id != 0 ? tables.updateRow(table, "Id", std::to_string(id), row)
                                    : tables.writeSingleRow(table, 0, row);
        ASSERT_TRUE(result.ok()) << result.strerror();
    }
    template <typename Cell>
    void commitCell(const std::string& table, int id, const std::string& column, const Cell& cell) {
        commit([&] { write(table, id, column, cell); });
    }

    bool isQuiet() const { return !oracle.violation().has_value(); }
    std::string text() const { return oracle.violation().value_or("quiet"); }
    static velta::Value valueOf(int number) {
        velta::Value value(velta::Value::Integer);
        value.setInteger(number);
        return value;
    }
    static velta::Value valueOf(const std::string& text) {
        velta::Value value(velta::Value::Text);
        value.setText(text);
        return value;
    }

    void expectQuiet() const { EXPECT_EQ(text(), "quiet"); }
    void expectViolation(const std::string& part) const { EXPECT_THAT(text(), testing::HasSubstr(part)); }

    orv::simulation::Tables tables;
    orv::simulation::Machine machine{mondayNoon * aSecond};
    std::list<std::string> planTables = {"WlanTimePlans", "TimePlans"};
    View view{tables, machine, planTables, 180, false, false, 0, 0, 0, 0};
    bool disturbed = true;
    bool onlyEdited = false; // what disturbs is no more than somebody else's commit
    Oracle oracle{view};
};

} // namespace sim
