// The blocks of PKCS #1 v1.5.
#include <string>

#include <gtest/gtest.h>

#include "hex.h"
#include "qorcrypt/src/rsa_padding.h"
#include "replaced_randomcalls.h"

namespace {

const Bytes digest = unhex("0102030405060708090a0b0c0d0e0f1011121300");
const std::string filler = "a1a2a3a4a5a6a7a8";

TEST(RsaPadding, RefusesWhatFitsNoBlock) {
    unsigned char block[46];
    EXPECT_TRUE(qorcrypt::padType1Sha1(digest.data(), block, 46));
    EXPECT_FALSE(qorcrypt::padType1Sha1(digest.data(), block, 45));
    EXPECT_FALSE(qorcrypt::padType1(nullptr, 0, block, 10));
}

TEST(RsaPadding, MakesType2BlocksWithoutAZeroInTheFiller) {
    for (std::size_t size = 0; size <= 20; ++size) {
        Bytes block(size == 20 ? 31 : 1031); // mostly long enough to draw zeros nearly always
        ASSERT_TRUE(qorcrypt::padType2(digest.data(), size, block.data(), block.size()));
        EXPECT_EQ(hex(block.data(), 2), "0002");
        const qorcrypt::Type2Result result = qorcrypt::removeType2(block.data(), block.size());
        ASSERT_EQ(result.length, size) << "the first zero is the one behind the filler";
        EXPECT_EQ(hex(block.data(), size), hex(digest.data(), size));
    }
    Bytes block(2 << 20, 'x'); // more than a seed is good for
    EXPECT_FALSE(qorcrypt::padType2(digest.data(), 20, block.data(), 30));
    EXPECT_FALSE(qorcrypt::padType2(nullptr, 0, block.data(), 10));
    randomCalls.opens = false;
    EXPECT_FALSE(qorcrypt::padType2(digest.data(), 3, block.data(), block.size()));
    randomCalls = {};
    EXPECT_EQ(block, Bytes(block.size()));
}

struct Row {
    const char* name;
    std::string block;
    std::string message;
    bool good = true;
};

TEST(RsaPadding, OpensType2Blocks) {
    const Row rows[] = {
        {"shortest filler", "0002" + filler + "00c1c2c3", "c1c2c3"},
        {"longer filler", "0002" + filler + "a900c2c3", "c2c3"},
        {"zeros in the message", "0002" + filler + "000000c3", "0000c3"},
        {"no message", "0002" + filler + "a9aaab00", ""},
        {"smallest block", "0002" + filler + "00", ""},
        {"too small a block", "0002a1a2a3a4a5a6a700", "", false},
        {"no block", "", "", false},
        {"filler too short", "0002a1a2a3a4a5a6a700c1c2c3c4", "", false},
        {"no filler", "000200c1c2c3c4c5c6c7c8c9cacb", "", false},
        {"no separator", "0002" + filler + "a9aaabac", "", false},
        {"first byte", "0102" + filler + "00c1c2c3", "", false},
        {"type 1", "0001ffffffffffffffff00c1c2c3", "", false},
    };
    const Bytes substitute = unhex("d1d2d3");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes block = unhex(row.block);
        for (std::size_t size = 0; size <= substitute.size(); ++size) {
            Bytes out(size);
            qorcrypt::removeType2OrSubstitute(block.data(), block.size(), substitute.data(),
                                              out.data(), size);
            const bool taken = row.good && row.message.size() == 2 * size;
            EXPECT_EQ(hex(out.data(), size), taken ? row.message : hex(substitute.data(), size));
        }
        const qorcrypt::Type2Result result = qorcrypt::removeType2(block.data(), block.size());
        EXPECT_EQ(result.good, row.good ? ~std::size_t{0} : 0);
        EXPECT_EQ(result.length, row.message.size() / 2);
        EXPECT_EQ(hex(block.data(), block.size()),
                  row.message + std::string(row.block.size() - row.message.size(), '0'));
    }
}

TEST(RsaPadding, RecoversFromType1Blocks) {
    const Row rows[] = {
        {"shortest filler", "0001ffffffffffffffff00c1c2", "c1c2"},
        {"longer filler", "0001ffffffffffffffffffff00c2", "c2"},
        {"no message", "0001ffffffffffffffff00", ""},
        {"separator missing", "0001ffffffffffffffffffffff", "", false},
        {"filler too short", "0001ffffffffffffff00c1c2c3", "", false},
        {"other filler", "0001fffffffffffffffe00c1c2", "", false},
        {"type 2", "0002ffffffffffffffff00c1c2", "", false},
        {"first byte", "0101ffffffffffffffff00c1c2", "", false},
        {"too small a block", "0001ffffffffffffffff", "", false},
    };
    for (const Row& row : rows) {
        const Bytes block = unhex(row.block);
        const unsigned char* message = nullptr;
        std::size_t size = 0;
        EXPECT_EQ(qorcrypt::recoverType1(block.data(), block.size(), &message, &size), row.good)
            << row.name;
        EXPECT_EQ(hex(message, size), row.message) << row.name;
    }
}

} // namespace
