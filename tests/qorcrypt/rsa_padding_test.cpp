// The blocks of PKCS #1 v1.5.
#include <string>

#include <gtest/gtest.h>

#include "hex.h"
#include "qorcrypt/src/rsa_padding.h"
#include "replaced_randomcalls.h"

namespace {

const unsigned char digest[20] = {1,  2,  3,  4,  5,  6,  7,  8,  9, 10,
                                  11, 12, 13, 14, 15, 16, 17, 18, 19};
const std::string filler8 = "a1a2a3a4a5a6a7a8";

TEST(RsaPadding, MakesType1Blocks) {
    unsigned char block[46];
    EXPECT_TRUE(qorcrypt::padType1(digest, 3, block, 14));
    EXPECT_EQ(hex(block, 14), "0001ffffffffffffffff00010203");
    EXPECT_TRUE(qorcrypt::padType1(nullptr, 0, block, 12));
    EXPECT_EQ(hex(block, 12), "0001ffffffffffffffffff00");
    // RFC 8017, section 9.2, note 1.
    EXPECT_TRUE(qorcrypt::padType1Sha1(digest, block, 46));
    EXPECT_EQ(hex(block, 46),
              "0001ffffffffffffffff003021300906052b0e03021a05000414" + hex(digest, sizeof digest));
    EXPECT_FALSE(qorcrypt::padType1Sha1(digest, block, 45));
    EXPECT_FALSE(qorcrypt::padType1(digest, 4, block, 14));
    EXPECT_FALSE(qorcrypt::padType1(nullptr, 0, block, 10));
}

TEST(RsaPadding, MakesType2BlocksWithoutAZeroInTheFiller) {
    for (std::size_t size = 0; size <= 20; ++size) {
        Bytes block(1031); // long enough to draw zeros nearly always
        const std::size_t blockSize = size == 20 ? 31 : block.size();
        ASSERT_TRUE(qorcrypt::padType2(digest, size, block.data(), blockSize));
        EXPECT_EQ(hex(block.data(), 2), "0002");
        const std::string filler(block.begin() + 2, block.begin() + long(blockSize - size - 1));
        EXPECT_EQ(filler.find('\0'), std::string::npos);
        const qorcrypt::Type2Result result = qorcrypt::removeType2(block.data(), blockSize);
        EXPECT_EQ(result.good, ~std::size_t{0});
        ASSERT_EQ(result.length, size);
        EXPECT_EQ(hex(block.data(), size), hex(digest, size));
    }
    unsigned char block[31];
    EXPECT_FALSE(qorcrypt::padType2(digest, 21 - 1, block, 30));
    EXPECT_FALSE(qorcrypt::padType2(nullptr, 0, block, 10));
}

TEST(RsaPadding, MakesNoType2BlockWithoutRandomBytes) {
    Bytes block(2 << 20, 'x'); // more than a seed is good for
    randomCalls.opens = false;
    const bool made = qorcrypt::padType2(digest, 3, block.data(), block.size());
    randomCalls = {};
    EXPECT_FALSE(made);
    EXPECT_EQ(block, Bytes(block.size()));
}

struct Row {
    const char* name;
    std::string block;
    const char* message; // null for a bad block
};

TEST(RsaPadding, OpensType2Blocks) {
    const Row rows[] = {
        {"shortest filler", "0002" + filler8 + "00c1c2c3", "c1c2c3"},
        {"longer filler", "0002" + filler8 + "a900c2c3", "c2c3"},
        {"zeros in the message", "0002" + filler8 + "000000c3", "0000c3"},
        {"no message", "0002" + filler8 + "a9aaab00", ""},
        {"smallest block", "0002" + filler8 + "00", ""},
        {"too small a block", "0002a1a2a3a4a5a6a700", nullptr},
        {"no block", "", nullptr},
        {"filler too short", "0002a1a2a3a4a5a6a700c1c2c3c4", nullptr},
        {"no filler", "000200c1c2c3c4c5c6c7c8c9cacb", nullptr},
        {"no separator", "0002" + filler8 + "a9aaabac", nullptr},
        {"first byte", "0102" + filler8 + "00c1c2c3", nullptr},
        {"type 1", "0001ffffffffffffffff00c1c2c3", nullptr},
        {"all zero", "0000000000000000000000000000", nullptr},
    };
    const Bytes substitute = unhex("d1d2d3");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string message = row.message != nullptr ? row.message : "";
        Bytes block = unhex(row.block);
        for (std::size_t size = 0; size <= substitute.size(); ++size) {
            Bytes out(size);
            qorcrypt::removeType2OrSubstitute(block.data(), block.size(), substitute.data(),
                                              out.data(), size);
            const bool taken = row.message != nullptr && message.size() == 2 * size;
            EXPECT_EQ(hex(out.data(), size), taken ? message : hex(substitute.data(), size));
        }
        const qorcrypt::Type2Result result = qorcrypt::removeType2(block.data(), block.size());
        EXPECT_EQ(result.good, row.message != nullptr ? ~std::size_t{0} : 0);
        EXPECT_EQ(result.length, message.size() / 2);
        EXPECT_EQ(hex(block.data(), block.size()),
                  message + std::string(row.block.size() - message.size(), '0'));
    }
}

TEST(RsaPadding, RecoversFromType1Blocks) {
    const Row rows[] = {
        {"shortest filler", "0001ffffffffffffffff00c1c2", "c1c2"},
        {"longer filler", "0001ffffffffffffffffffff00c2", "c2"},
        {"no message", "0001ffffffffffffffff00", ""},
        {"separator missing", "0001ffffffffffffffffffffff", nullptr},
        {"filler too short", "0001ffffffffffffff00c1c2c3", nullptr},
        {"other filler", "0001fffffffffffffffe00c1c2", nullptr},
        {"type 2", "0002ffffffffffffffff00c1c2", nullptr},
        {"first byte", "0101ffffffffffffffff00c1c2", nullptr},
        {"too small a block", "0001ffffffffffffff00", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Bytes block = unhex(row.block);
        const unsigned char* message = nullptr;
        std::size_t size = 0;
        ASSERT_EQ(qorcrypt::recoverType1(block.data(), block.size(), &message, &size),
                  row.message != nullptr);
        EXPECT_EQ(hex(message, size), row.message != nullptr ? row.message : "");
    }
}

} // namespace
