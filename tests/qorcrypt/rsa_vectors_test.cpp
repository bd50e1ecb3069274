// RSA against the published cases of Project Wycheproof.
#include <algorithm>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "environment.h"
#include "hex.h"
#include "qorcrypto_rsa.h"
#include "qorcrypto_sha1.h"
#include "vectors.h"

namespace {

using nlohmann::json;
using Result = QorRsaResult;

void decrypt(const QorRsaKey& key, const json& row) {
    const bool wellFormed = row.at("flags").dump().find("InvalidCiphertext") == std::string::npos;
    const bool good = row.at("result") == "valid";
    const std::string message = row.at("msg");
    const Bytes in = unhex(row.at("ct"));
    Bytes out(key.ModulusSize() - QorRsaKey::PaddingSize);
    std::size_t size = 0;
    const Result result = key.DecryptType2(in.data(), in.size(), out.data(), out.size(), &size);
    EXPECT_EQ(result == Result::Ok, good);
    EXPECT_EQ(result == Result::Ok || result == Result::BadPadding, wellFormed);
    EXPECT_EQ(hex(out.data(), size), good ? message : "");

    // Two bad blocks hold more than a good one can.
    const std::size_t known = std::min(message.size() / 2, out.size());
    const Result same = key.DecryptType2OrRandom(in.data(), in.size(), out.data(), known);
    EXPECT_EQ(same == Result::Ok, wellFormed) << "a bad padding doesn't show";
    EXPECT_TRUE(!good || hex(out.data(), known) == message);
}

void sign(const QorRsaKey& key, const json& row) {
    const Bytes message = unhex(row.at("msg"));
    unsigned char digest[QOR_SHA1_SIZE];
    ASSERT_EQ(QorSha1(message.data(), message.size(), digest), 1);
    Bytes signature(key.ModulusSize());
    ASSERT_EQ(key.SignSha1(digest, signature.data(), signature.size()), Result::Ok);
    EXPECT_EQ(hex(signature.data(), signature.size()), row.at("sig"));
    EXPECT_EQ(key.VerifySha1(digest, signature.data(), signature.size()), Result::Ok);
    signature.back() ^= 1;
    EXPECT_NE(key.VerifySha1(digest, signature.data(), signature.size()), Result::Ok);
}

class RsaVectors : public testing::TestWithParam<const char*> {};

TEST_P(RsaVectors, AreMet) {
    const std::string path = "wycheproof/rsa_pkcs1_" + std::string(GetParam()) + "_test.json";
    const std::string text = support::readVectors(path);
    if (text.empty()) {
        QOR_SKIP_OR_FAIL("no vectors at " + support::vectorPath(path));
    }
    const bool areSignatures = path.find("sig_gen") != std::string::npos;
    int count = 0;
    const json file = json::parse(text);
    for (const json& group : file.at("testGroups")) {
        const std::string pem = group.at("privateKeyPem");
        QorRsaKey key;
        ASSERT_EQ(key.LoadPem(pem.data(), pem.size()), Result::Ok);
        // Those of other digests are left out.
        const bool isOurs = group.value("sha", "SHA-1") == "SHA-1";
        for (const json& row : isOurs ? group.at("tests") : json::array()) {
            SCOPED_TRACE(row.at("tcId").dump() + " " + row.at("comment").dump());
            (areSignatures ? sign : decrypt)(key, row);
            ++count;
        }
    }
    EXPECT_GE(count, 8);
}

INSTANTIATE_TEST_SUITE_P(Wycheproof, RsaVectors,
                         testing::Values("2048", "3072", "4096", "1024_sig_gen", "2048_sig_gen"));

} // namespace
