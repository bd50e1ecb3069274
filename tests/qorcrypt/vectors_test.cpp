// SHA-1, by each form that this machine has, and RSA against published cases.
#include <algorithm>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "environment.h"
#include "hex.h"
#include "qorcrypt/src/sha1_blocks.h"
#include "qorcrypto_rsa.h"
#include "qorcrypto_sha1.h"
#include "vectors.h"

namespace {

void expectDigest(const Bytes& message, const std::string& expected) {
    const auto fast = qorcrypt::sha1ProcessorBlocks();
    for (const auto blocks :
         {qorcrypt::sha1BlocksPortable, fast != nullptr ? fast : qorcrypt::sha1BlocksPortable}) {
        for (const std::size_t piece : {1u, 55u, 64u, 67u, 128u}) {
            QorSha1Context context;
            unsigned char digest[QOR_SHA1_SIZE];
            QorSha1Init(&context);
            for (std::size_t at = 0; at < message.size(); at += piece) {
                const std::size_t size = std::min(piece, message.size() - at);
                qorcrypt::sha1Update(context, message.data() + at, size, blocks);
            }
            qorcrypt::sha1Final(context, digest, blocks);
            EXPECT_EQ(hex(digest, sizeof digest), expected) << message.size() << " by " << piece;
        }
    }
}

TEST(Sha1, GivesPublishedDigests) {
    expectDigest(Bytes(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"); // FIPS 180-2
    for (const char* file : {"nist-sha1/SHA1ShortMsg.rsp", "nist-sha1/SHA1LongMsg.rsp"}) {
        std::istringstream lines(support::readVectors(file));
        std::string name, equals, value;
        Bytes message;
        std::size_t size = 0;
        while (lines >> name) {
            if (name == "Len" && lines >> equals >> value) {
                size = std::stoul(value) / 8;
            } else if (name == "Msg" && lines >> equals >> value) {
                message = unhex(value);
                message.resize(size); // an empty one is written as one byte
            } else if (name == "MD" && lines >> equals >> value) {
                expectDigest(message, value);
            }
        }
        if (size == 0) {
            QOR_SKIP_OR_FAIL(std::string("no vectors: ") + file);
        }
    }
}

TEST(Sha1, RefusesNullAndWipes) {
    QorSha1Context context;
    unsigned char digest[QOR_SHA1_SIZE];
    EXPECT_EQ(QorSha1("a", 1, nullptr) + QorSha1Init(nullptr) + QorSha1Update(nullptr, "a", 1), 0);
    EXPECT_EQ(QorSha1Init(&context) + QorSha1Update(&context, nullptr, 0), 2);
    EXPECT_EQ(QorSha1Update(&context, nullptr, 1) + QorSha1Final(&context, nullptr), 0);
    EXPECT_EQ(QorSha1Final(&context, digest), 1);
    EXPECT_EQ(context.state[0] + context.block[0], 0u);
}

using nlohmann::json;
using Result = QorRsaResult;

void decrypt(const QorRsaKey& key, const json& row) {
    const bool wellFormed = row.at("flags").dump().find("InvalidCiphertext") == std::string::npos;
    const std::string message = row.at("result") == "valid" ? row.at("msg") : json("");
    const Bytes in = unhex(row.at("ct"));
    const std::size_t room = key.ModulusSize() - QorRsaKey::PaddingSize;
    Bytes out(room);
    std::size_t size = 99;
    const Result result = key.DecryptType2(in.data(), in.size(), out.data(), room, &size);
    EXPECT_EQ(result == Result::Ok, row.at("result") == "valid");
    EXPECT_EQ(result == Result::Ok || result == Result::BadPadding, wellFormed);
    EXPECT_EQ(hex(out.data(), room), message + std::string(2 * room - message.size(), '0'));

    // What is bad, or has another size, becomes random bytes.
    for (const std::size_t known : {size, std::min(size + 16, room)}) {
        const Result same = key.DecryptType2OrRandom(in.data(), in.size(), out.data(), known);
        EXPECT_EQ(same == Result::Ok, wellFormed) << "a bad padding doesn't show";
        const std::string last = hex(out.data(), known).substr(2 * (known - size));
        EXPECT_EQ(last == message, known == size || size == 0);
    }
}

void sign(const QorRsaKey& key, const json& row) {
    const Bytes message = unhex(row.at("msg"));
    unsigned char digest[QOR_SHA1_SIZE];
    Bytes signature(key.ModulusSize());
    EXPECT_EQ(QorSha1(message.data(), message.size(), digest), 1);
    EXPECT_EQ(key.SignSha1(digest, signature.data(), signature.size()), Result::Ok);
    EXPECT_EQ(hex(signature.data(), signature.size()), row.at("sig"));
}

class RsaVectors : public testing::TestWithParam<const char*> {};

TEST_P(RsaVectors, AreMet) {
    const std::string path = "wycheproof/rsa_pkcs1_" + std::string(GetParam()) + "_test.json";
    const std::string text = support::readVectors(path);
    if (text.empty()) {
        QOR_SKIP_OR_FAIL("no vectors: " + path);
    }
    const json file = json::parse(text);
    for (const json& group : file.at("testGroups")) {
        const std::string pem = group.at("privateKeyPem");
        QorRsaKey key;
        ASSERT_EQ(key.LoadPem(pem.data(), pem.size()), Result::Ok);
        // Those of other digests are left out.
        for (const json& row :
             group.value("sha", "SHA-1") == "SHA-1" ? group.at("tests") : json()) {
            SCOPED_TRACE(row.at("tcId").dump() + " " + row.at("comment").dump());
            (row.contains("sig") ? sign : decrypt)(key, row);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Wycheproof, RsaVectors,
                         testing::Values("2048", "3072", "4096", "1024_sig_gen", "2048_sig_gen"));

} // namespace
