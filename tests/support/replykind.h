#pragma once

#include "velta/protocol/message.h"

namespace fakes {

// The kind of the reply to a request that succeeds.
inline velta::protocol::ReplyKind replyKindTo(velta::protocol::RequestKind kind) {
    using velta::protocol::ReplyKind;
    using velta::protocol::RequestKind;
    switch (kind) {
    case RequestKind::Tables:
        return ReplyKind::Tables;
    case RequestKind::Columns:
    case RequestKind::SharedColumns:
        return ReplyKind::Columns;
    case RequestKind::Describe:
        return ReplyKind::Description;
    case RequestKind::ReadTable:
    case RequestKind::ReadRow:
    case RequestKind::ReadKey:
        return ReplyKind::Rows;
    case RequestKind::Hello:
    case RequestKind::Subscribe:
    case RequestKind::Begin:
    case RequestKind::Commit:
    case RequestKind::Abort:
    case RequestKind::WriteSingle:
    case RequestKind::Update:
    case RequestKind::Insert:
    case RequestKind::Remove:
        break;
    }
    return ReplyKind::Done;
}

} // namespace fakes
