// SHA-1 by each form that this machine has.
#include <algorithm>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "environment.h"
#include "hex.h"
#include "qorcrypt/src/sha1_blocks.h"
#include "qorcrypto_sha1.h"
#include "vectors.h"

namespace {

// The digest of a message that comes in pieces.
std::string digestBy(qorcrypt::Sha1Blocks blocks, const Bytes& message, std::size_t pieceSize) {
    QorSha1Context context;
    QorSha1Init(&context);
    for (std::size_t at = 0; at < message.size(); at += pieceSize) {
        const std::size_t size = std::min(pieceSize, message.size() - at);
        qorcrypt::sha1Update(context, message.data() + at, size, blocks);
    }
    unsigned char digest[QOR_SHA1_SIZE];
    qorcrypt::sha1Final(context, digest, blocks);
    return hex(digest, sizeof digest);
}

void expectDigest(const Bytes& message, const std::string& expected) {
    unsigned char digest[QOR_SHA1_SIZE];
    EXPECT_EQ(QorSha1(message.data(), message.size(), digest), 1);
    EXPECT_EQ(hex(digest, sizeof digest), expected) << message.size();
    for (const auto blocks : {qorcrypt::sha1BlocksPortable, qorcrypt::sha1ProcessorBlocks()}) {
        for (const std::size_t piece : {1u, 55u, 63u, 64u, 67u, 128u}) {
            EXPECT_TRUE(blocks == nullptr || digestBy(blocks, message, piece) == expected)
                << message.size() << " by " << piece;
        }
    }
}

// FIPS 180-2, appendix A, and RFC 3174, section 7.3.
TEST(Sha1, GivesPublishedDigests) {
    const std::string text = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    expectDigest({}, "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    expectDigest({'a', 'b', 'c'}, "a9993e364706816aba3e25717850c26c9cd0d89d");
    expectDigest(Bytes(text.begin(), text.end()), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    expectDigest(Bytes(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(Sha1, GivesTheDigestsOfNist) {
    for (const char* file : {"nist-sha1/SHA1ShortMsg.rsp", "nist-sha1/SHA1LongMsg.rsp"}) {
        std::istringstream lines(support::readVectors(file));
        std::string name, equals, value;
        std::size_t length = 0;
        std::size_t count = 0;
        Bytes message;
        while (lines >> name) {
            if (name == "Len" && lines >> equals >> value) {
                length = std::stoul(value) / 8;
            } else if (name == "Msg" && lines >> equals >> value) {
                message = unhex(value);
                message.resize(length); // an empty one is written as one byte
            } else if (name == "MD" && lines >> equals >> value) {
                expectDigest(message, value);
                ++count;
            }
        }
        if (count == 0) {
            QOR_SKIP_OR_FAIL("no vectors at " + support::vectorPath(file));
        }
    }
}

TEST(Sha1, RefusesNull) {
    QorSha1Context context;
    unsigned char digest[QOR_SHA1_SIZE];
    EXPECT_EQ(QorSha1(nullptr, 1, digest) + QorSha1("a", 1, nullptr) + QorSha1Init(nullptr) +
                  QorSha1Update(nullptr, "a", 1) + QorSha1Final(nullptr, digest),
              0);
    ASSERT_EQ(QorSha1Init(&context), 1);
    EXPECT_EQ(QorSha1Update(&context, nullptr, 1) + QorSha1Final(&context, nullptr), 0);
    EXPECT_EQ(QorSha1Update(&context, nullptr, 0) + QorSha1Final(&context, digest), 2);
    EXPECT_EQ(hex(digest, 4), "da39a3ee");
    EXPECT_EQ(context.state[0] + context.block[0], 0u) << "wiped";
}

} // namespace
