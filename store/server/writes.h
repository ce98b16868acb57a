#pragma once

#include "store/storage/transaction.h"
#include "velta/protocol/message.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>

namespace store {

// Carries out a request that writes. `number` gets the Id of a row that was inserted.
velta::protocol::EResultCode carryOut(Transaction& transaction, const velta::protocol::Request& request,
                                      std::uint32_t& number);

} // namespace store
