#include "store/server/writes.h"

namespace store {

using velta::protocol::RequestKind;

velta::protocol::EResultCode carryOut(Transaction& transaction, const velta::protocol::Request& request,
                                      std::uint32_t& number) {
    if (request.kind == RequestKind::WriteSingle)
        return transaction.writeSingle(request.table, request.number, request.values);
    if (request.kind == RequestKind::Update)
        return transaction.update(request.table, request.keyColumn, request.key, request.values);
    if (request.kind == RequestKind::Insert)
        return transaction.insert(request.table, request.values, number);
    return transaction.remove(request.table, request.keyColumn, request.key);
}

} // namespace store
