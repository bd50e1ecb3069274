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

std::string textOf(const json& object, const char* name) {
    return object.at(name).get<std::string>();
}

Bytes bytesOf(const json& object, const char* name) {
    return unhex(textOf(object, name));
}

void load(QorRsaKey& key, const json& group) {
    const std::string pem = textOf(group, "privateKeyPem");
    ASSERT_EQ(key.LoadPem(pem.data(), pem.size()), QorRsaResult::Ok);
}

void decrypt(const QorRsaKey& key, const json& row) {
    const bool wellFormed = row.at("flags").dump().find("InvalidCiphertext") == std::string::npos;
    const bool good = textOf(row, "result") == "valid";
    const Bytes in = bytesOf(row, "ct");
    Bytes out(key.ModulusSize() - QorRsaKey::PaddingSize);
    std::size_t size = 0;
    const QorRsaResult result =
        key.DecryptType2(in.data(), in.size(), out.data(), out.size(), &size);
    EXPECT_EQ(result == QorRsaResult::Ok, good);
    EXPECT_EQ(result == QorRsaResult::Ok || result == QorRsaResult::BadPadding, wellFormed);
    EXPECT_EQ(hex(out.data(), size), good ? textOf(row, "msg") : "");

    // Two bad blocks hold more than a good one can.
    const std::size_t known = std::min(textOf(row, "msg").size() / 2, out.size());
    const QorRsaResult same = key.DecryptType2OrRandom(in.data(), in.size(), out.data(), known);
    EXPECT_EQ(same == QorRsaResult::Ok, wellFormed) << "a bad padding doesn't show";
    EXPECT_TRUE(!good || hex(out.data(), known) == textOf(row, "msg"));
}

void sign(const QorRsaKey& key, const json& row) {
    const Bytes message = bytesOf(row, "msg");
    unsigned char digest[QOR_SHA1_SIZE];
    ASSERT_EQ(QorSha1(message.data(), message.size(), digest), 1);
    Bytes signature(key.ModulusSize());
    ASSERT_EQ(key.SignSha1(digest, signature.data(), signature.size()), QorRsaResult::Ok);
    EXPECT_EQ(hex(signature.data(), signature.size()), textOf(row, "sig"));
    EXPECT_EQ(key.VerifySha1(digest, signature.data(), signature.size()), QorRsaResult::Ok);
    signature.back() ^= 1;
    EXPECT_NE(key.VerifySha1(digest, signature.data(), signature.size()), QorRsaResult::Ok);
}

// Runs the cases of a file's groups, those for SHA-1 where it names a digest; says how many.
template <class RunCase>
int runCases(const std::string& text, RunCase runCase) {
    int count = 0;
    const json file = json::parse(text);
    for (const json& group : file.at("testGroups")) {
        if (group.value("sha", "SHA-1") != "SHA-1") {
            continue;
        }
        QorRsaKey key;
        load(key, group);
        for (const json& row : group.at("tests")) {
            SCOPED_TRACE(row.at("tcId").dump() + " " + row.at("comment").dump());
            runCase(key, row);
            ++count;
        }
    }
    return count;
}

class RsaVectors : public testing::TestWithParam<const char*> {};

TEST_P(RsaVectors, AreMet) {
    const std::string path = "wycheproof/rsa_pkcs1_" + std::string(GetParam()) + "_test.json";
    const std::string text = support::readVectors(path);
    if (text.empty()) {
        QOR_SKIP_OR_FAIL("no vectors at " + support::vectorPath(path));
    }
    const bool areSignatures = path.find("sig_gen") != std::string::npos;
    EXPECT_GE(runCases(text, areSignatures ? sign : decrypt), 8);
}

INSTANTIATE_TEST_SUITE_P(Wycheproof, RsaVectors,
                         testing::Values("2048", "3072", "4096", "1024_sig_gen", "2048_sig_gen"));

} // namespace
