#include "cfg/snapshot.h"
#include "velta/protocol/wire.h"

#include <string>

#include <gtest/gtest.h>

namespace orv::cfg {

using velta::protocol::RowsPiece;

namespace {

constexpr std::size_t mebibyte = 1024 * 1024;

// A piece with one row of one text, of a mebibyte and a few bytes.
class LargePieces {
public:
    LargePieces() {
        velta::Value text;
        text.setText(std::string(mebibyte, 'x'));
        velta::protocol::Writer(cells_).value(text);
    }

    RowsPiece piece() const {
        RowsPiece piece;
        piece.totalRows = 1000;
        piece.rows = 1;
        piece.columns = {"Text"};
        piece.cells = cells_;
        return piece;
    }

private:
    std::string cells_;
};

} // namespace

TEST(Snapshot, TakesATableThatHasOutgrownTheStoresLimit) {
    const LargePieces pieces;
    Snapshot snapshot;

    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(snapshot.append(pieces.piece()), nullptr) << i;

    velta::ValueList values;
    snapshot.row(99, {}, values);
    EXPECT_EQ(values.getValue("Text").getText().size(), mebibyte);
}

TEST(Snapshot, RefusesATableThatIsLargerThanAny) {
    const LargePieces pieces;
    Snapshot snapshot;
    int taken = 0;

    while (taken < 1000 && snapshot.append(pieces.piece()) == nullptr)
        ++taken;

    EXPECT_EQ(taken, 255);
}

} // namespace orv::cfg
