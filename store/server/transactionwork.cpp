#include "store/server/transactionwork.h"

#include "velta/text.h"

#include <algorithm>
#include <optional>

namespace store {

using velta::protocol::Request;
using velta::protocol::RequestKind;

namespace {

constexpr std::size_t overhead = 64; // bytes that a request or a cell takes besides its texts, about

std::size_t sizeOf(const Request& request) {
    std::size_t bytes = overhead + request.table.size() + request.keyColumn.size() + request.key.size();
    for (const auto& [name, value] : request.values)
        bytes += overhead + name.size() + (value.type() == velta::Value::Text ? value.getText().size() : 0);
    return bytes;
}

// How a request reads rows.
enum class Use { None, Row, Whole };

Use useOf(const Request& request) {
    switch (request.kind) {
    case RequestKind::ReadTable:
    case RequestKind::ReadRow: // which one it is depends on the others
        return Use::Whole;
    case RequestKind::ReadKey:
    case RequestKind::Update:
    case RequestKind::Remove:
        return request.keyColumn == idColumn ? Use::Row : Use::Whole;
    case RequestKind::WriteSingle:
    case RequestKind::Insert:
    case RequestKind::Hello:
    case RequestKind::Tables:
    case RequestKind::Columns:
    case RequestKind::Subscribe:
    case RequestKind::Begin:
    case RequestKind::Commit:
    case RequestKind::Abort:
    case RequestKind::Describe:
    case RequestKind::SharedColumns:
        break;
    }
    return Use::None;
}

} // namespace

void TransactionWork::note(const Schema& schema, const Request& request) {
    const Use use = useOf(request);
    const std::optional<std::size_t> table = use == Use::None ? std::nullopt : indexOf(schema, request.table);
    if (!table)
        return;
    tables_.insert(request.table);
    if (!schema.tables()[*table].isShared())
        return;
    const std::optional<std::int64_t> id =
        use == Use::Row ? velta::wholeNumber(request.key) : std::optional<std::int64_t>();
    if (id)
        reads_.noteRow(*table, *id);
    else if (use == Use::Whole)
        reads_.noteWhole(*table);
}

void TransactionWork::keep(const Request& request, std::uint32_t number) {
    tables_.insert(request.table);
    bytes_ += sizeOf(request);
    if (tooManyWrites()) {
        writes_.clear();
        return;
    }
    writes_.push_back(request);
    if (request.kind != RequestKind::Insert || request.values.hasValue(idColumn))
        return;
    velta::Value id(velta::Value::Integer);
    id.setInteger(static_cast<int>(number));
    writes_.back().values.add(idColumn, id); // the client was told this one
}

bool TransactionWork::usesAny(const velta::NameList& tables) const {
    return std::any_of(tables.begin(), tables.end(),
                       [this](const std::string& table) { return tables_.count(table) != 0; });
}

void giveBack(Sharing& sharing, const std::vector<TransactionWork::ReservedId>& reserved) {
    for (const TransactionWork::ReservedId& id : reserved)
        sharing.giveBack(id.table, id.id);
}

std::optional<std::size_t> indexOf(const Schema& schema, const std::string& table) {
    const std::vector<Table>& tables = schema.tables();
    const auto found = std::find_if(tables.begin(), tables.end(),
                                    [&table](const Table& other) { return other.name == table; });
    if (found == tables.end())
        return std::nullopt;
    return static_cast<std::size_t>(found - tables.begin());
}

} // namespace store
