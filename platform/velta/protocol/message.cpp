#include "velta/protocol/message.h"

#include "velta/celltype.h"
#include "velta/protocol/frame.h"
#include "velta/protocol/wire.h"

#include <utility>

namespace velta::protocol {

namespace {

// The fields that a request may have after its kind and sequence number, in this order.
enum Field : unsigned {
    Magic = 1,
    Table = 2,
    KeyColumn = 4,
    Key = 8,
    Number = 16,
    Names = 32,
    Values = 64,
};

struct RequestShape {
    RequestKind kind;
    unsigned fields;
};

constexpr RequestShape requestShapes[] = {
    {RequestKind::Hello, Magic | Key | Number},
    {RequestKind::Tables, 0},
    {RequestKind::Columns, Table},
    {RequestKind::ReadTable, Table},
    {RequestKind::ReadRow, Table | Number},
    {RequestKind::ReadKey, Table | KeyColumn | Key},
    {RequestKind::Subscribe, Number | Names},
    {RequestKind::Begin, Number},
    {RequestKind::Commit, 0},
    {RequestKind::Abort, 0},
    {RequestKind::WriteSingle, Table | Number | Values},
    {RequestKind::Update, Table | KeyColumn | Key | Values},
    {RequestKind::Insert, Table | Values},
    {RequestKind::Remove, Table | KeyColumn | Key},
    {RequestKind::Describe, Table},
    {RequestKind::SharedColumns, Table},
};

static_assert(std::size(requestShapes) == static_cast<std::size_t>(RequestKind::SharedColumns),
              "each kind of request has a shape");

const RequestShape* shapeOf(std::uint8_t kind) {
    for (const RequestShape& shape : requestShapes)
        if (static_cast<std::uint8_t>(shape.kind) == kind)
            return &shape;
    return nullptr;
}

constexpr std::size_t leastBytesOfTable = 5;
constexpr std::size_t leastBytesOfColumn = 5;
constexpr std::size_t leastBytesOfDescription = 12;

void writeTables(Writer& writer, const std::vector<TableInfo>& tables) {
    writer.number32(static_cast<std::uint32_t>(tables.size()));
    for (const TableInfo& table : tables) {
        writer.text(table.name);
        writer.number8(table.singleRow ? 1 : 0);
    }
}

void readTables(Reader& reader, std::vector<TableInfo>& tables) {
    for (std::uint32_t left = reader.count(leastBytesOfTable); left > 0 && reader.ok(); --left) {
        TableInfo table;
        table.name = reader.text();
        table.singleRow = reader.number8() != 0;
        tables.push_back(std::move(table));
    }
}

void writeColumns(Writer& writer, const std::vector<ColumnInfo>& columns) {
    writer.number32(static_cast<std::uint32_t>(columns.size()));
    for (const ColumnInfo& column : columns) {
        writer.text(column.name);
        writer.number8(static_cast<std::uint8_t>(column.type));
    }
}

void readColumns(Reader& reader, std::vector<ColumnInfo>& columns) {
    for (std::uint32_t left = reader.count(leastBytesOfColumn); left > 0 && reader.ok(); --left) {
        ColumnInfo column;
        column.name = reader.text();
        column.type = reader.number8();
        if (column.type > Value::Text)
            reader.fail();
        columns.push_back(std::move(column));
    }
}

void writeDescriptions(Writer& writer, const std::vector<ColumnDescription>& columns) {
    writer.number32(static_cast<std::uint32_t>(columns.size()));
    for (const ColumnDescription& column : columns) {
        writer.text(column.name);
        writer.number8(static_cast<std::uint8_t>(column.type));
        writer.text(column.kind);
        writer.value(column.least);
        writer.value(column.most);
        writer.value(column.defaultValue);
    }
}

// Whether a numeric column has limits of its type, and a text column has none.
bool isSound(const ColumnDescription& column) {
    if (!isNumber(column.type) && column.type != Value::Text)
        return false;
    const unsigned typeOfLimits = isNumber(column.type) ? column.type : unsigned{Value::None};
    const unsigned typeOfDefault = column.defaultValue.type();
    return column.least.type() == typeOfLimits && column.most.type() == typeOfLimits &&
           (typeOfDefault == Value::None || typeOfDefault == column.type);
}

void readDescriptions(Reader& reader, std::vector<ColumnDescription>& columns) {
    for (std::uint32_t left = reader.count(leastBytesOfDescription); left > 0 && reader.ok(); --left) {
        ColumnDescription column;
        column.name = reader.text();
        column.type = reader.number8();
        column.kind = reader.text();
        column.least = reader.value();
        column.most = reader.value();
        column.defaultValue = reader.value();
        if (!isSound(column))
            reader.fail();
        columns.push_back(std::move(column));
    }
}

void writeRows(Writer& writer, std::string& bytes, const RowsPiece& piece) {
    writer.number8(piece.last ? 1 : 0);
    writer.number32(piece.totalRows);
    writer.number32(piece.rows);
    writer.names(piece.columns);
    bytes.append(piece.cells);
}

void readRows(Reader& reader, RowsPiece& piece) {
    piece.last = reader.number8() != 0;
    piece.totalRows = reader.number32();
    piece.rows = reader.number32();
    reader.names(piece.columns);
    piece.cells = reader.rest();
    if (piece.rows > piece.totalRows || (piece.rows > 0 && piece.columns.empty()))
        reader.fail();
    for (std::uint32_t row = 0; row < piece.rows && reader.ok(); ++row)
        for (std::size_t column = 0; column < piece.columns.size(); ++column)
            reader.skipValue();
}

void readResult(Reader& reader, EResultCode& result) {
    const auto code = static_cast<std::int32_t>(reader.number32());
    result = EResultCode(code, std::string(reader.text()));
    if (result.ok())
        reader.fail();
}

} // namespace

void encode(const Request& request, std::string& bytes) {
    const std::size_t begin = beginFrame(bytes);
    Writer writer(bytes);
    const auto kind = static_cast<std::uint8_t>(request.kind);
    const unsigned fields = shapeOf(kind)->fields;
    writer.number8(kind);
    writer.number32(request.sequence);
    if ((fields & Magic) != 0)
        writer.number32(magic);
    if ((fields & Table) != 0)
        writer.text(request.table);
    if ((fields & KeyColumn) != 0)
        writer.text(request.keyColumn);
    if ((fields & Key) != 0)
        writer.text(request.key);
    if ((fields & Number) != 0)
        writer.number32(request.number);
    if ((fields & Names) != 0)
        writer.names(request.names);
    if ((fields & Values) != 0)
        writer.values(request.values);
    endFrame(bytes, begin);
}

bool decode(std::string_view message, Request& request) {
    request = Request();
    Reader reader(message);
    const RequestShape* shape = shapeOf(reader.number8());
    if (shape == nullptr)
        return false;
    request.kind = shape->kind;
    request.sequence = reader.number32();
    if ((shape->fields & Magic) != 0 && reader.number32() != magic)
        return false;
    if ((shape->fields & Table) != 0)
        request.table = reader.text();
    if ((shape->fields & KeyColumn) != 0)
        request.keyColumn = reader.text();
    if ((shape->fields & Key) != 0)
        request.key = reader.text();
    if ((shape->fields & Number) != 0)
        request.number = reader.number32();
    if ((shape->fields & Names) != 0)
        reader.names(request.names);
    if ((shape->fields & Values) != 0)
        reader.values(request.values);
    return reader.complete();
}

void encode(const Reply& reply, std::string& bytes) {
    const std::size_t begin = beginFrame(bytes);
    Writer writer(bytes);
    writer.number8(static_cast<std::uint8_t>(reply.kind));
    writer.number32(reply.sequence);
    switch (reply.kind) {
    case ReplyKind::Done:
        writer.number32(reply.number);
        break;
    case ReplyKind::Failed:
        writer.number32(static_cast<std::uint32_t>(reply.result.code()));
        writer.text(reply.result.detail());
        break;
    case ReplyKind::Tables:
        writeTables(writer, reply.tables);
        break;
    case ReplyKind::Columns:
        writeColumns(writer, reply.columns);
        break;
    case ReplyKind::Rows:
        writeRows(writer, bytes, reply.rows);
        break;
    case ReplyKind::Notice:
        writer.names(reply.names);
        break;
    case ReplyKind::Description:
        writeDescriptions(writer, reply.descriptions);
        break;
    }
    endFrame(bytes, begin);
}

bool decode(std::string_view message, Reply& reply) {
    reply = Reply();
    Reader reader(message);
    const std::uint8_t kind = reader.number8();
    if (kind < static_cast<std::uint8_t>(ReplyKind::Done) ||
        kind > static_cast<std::uint8_t>(ReplyKind::Description))
        return false;
    reply.kind = static_cast<ReplyKind>(kind);
    reply.sequence = reader.number32();
    switch (reply.kind) {
    case ReplyKind::Done:
        reply.number = reader.number32();
        break;
    case ReplyKind::Failed:
        readResult(reader, reply.result);
        break;
    case ReplyKind::Tables:
        readTables(reader, reply.tables);
        break;
    case ReplyKind::Columns:
        readColumns(reader, reply.columns);
        break;
    case ReplyKind::Rows:
        readRows(reader, reply.rows);
        break;
    case ReplyKind::Notice:
        reader.names(reply.names);
        break;
    case ReplyKind::Description:
        readDescriptions(reader, reply.descriptions);
        break;
    }
    return reader.complete();
}

} // namespace velta::protocol
