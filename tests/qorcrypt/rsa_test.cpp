#include "qorcrypto_rsa.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qorcrypto_sha1.h"
#include "rsa_numbers.h"
#include "temp_directory.h"

namespace {

using Bytes = RsaNumbers::Bytes;
using Result = QorRsaResult;

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

QorRsaKey keyOf(const RsaNumbers& numbers) {
    QorRsaKey key;
    EXPECT_EQ(Result::Ok, key.SetPrivate(numbers.view()));
    return key;
}

// The key that most tests use, of 1,128 bits.
RsaNumbers plainNumbers() {
    return RsaNumbers::ofMersennePrimes(607, 521);
}
constexpr std::size_t k = 141;

GmpNumber numberOf(const Bytes& bytes) {
    GmpNumber number;
    mpz_import(number, bytes.size(), 1, 1, 0, 0, bytes.data());
    return number;
}

GmpNumber sum(const Bytes& a, const GmpNumber& b) {
    GmpNumber number = numberOf(a);
    mpz_add(number, number, b);
    return number;
}

// Both operations against GMP's powers; for small keys also with the smallest messages and the
// largest.
void compareRaw(const RsaNumbers& numbers) {
    const QorRsaKey key = keyOf(numbers);
    EXPECT_EQ(mpz_sizeinbase(numberOf(numbers.n), 2), key.ModulusBits());
    const std::size_t size = key.ModulusSize();
    std::vector<GmpNumber> messages = {numberOf(numbers.p), sum(numbers.n, -12345)};
    if (key.ModulusBits() < 2000) {
        messages.insert(messages.end(), {0, 1, 2, sum(numbers.n, -1)});
    }
    for (const GmpNumber& message : messages) {
        SCOPED_TRACE(message.hex());
        GmpNumber theirs;
        Bytes block = message.bytes(size);
        ASSERT_EQ(Result::Ok, key.PrivateRaw(block.data(), size, block.data(), size));
        mpz_powm(theirs, message, numberOf(numbers.d), numberOf(numbers.n));
        ASSERT_EQ(theirs.bytes(size), block);
        ASSERT_EQ(Result::Ok, key.PublicRaw(block.data(), size, block.data(), size));
        ASSERT_EQ(message.bytes(size), block);
    }
}

TEST(RsaKey, raisesAsGmpDoes) {
    const struct {
        unsigned long p, q;
        long e;
    } rows[] = {
        {521, 607, 65537}, {607, 1279, 5},          {1279, 521, 65537},  {127, 521, 257},
        {7, 607, 5},       {2203, 2281, 65537},     {4253, 4423, 65537}, {521, 4253, 65537},
        {61, 521, 257},    {1279, 607, 0xfffffffb},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.p) + " and " + std::to_string(row.q) + " bits");
        const RsaNumbers numbers = RsaNumbers::ofMersennePrimes(row.p, row.q, row.e);
        compareRaw(numbers);
        if (row.p + row.q < 3000) {
            SCOPED_TRACE("no primes");
            compareRaw(numbers.withoutPrimes());
        }
    }
}

TEST(RsaKey, refusesNumbersThatMakeNoKey) {
    using Numbers = RsaNumbers;
    const Numbers good = plainNumbers();
    static const Bytes beyond = GmpNumber::powerOfTwo(2048, 0).bytes(); // all numbers' limbs
    const Result ok = Result::Ok;
    const Result bad = Result::BadKey;
    const struct {
        const char* name;
        std::function<void(Numbers&)> change;
        Result withPrimes;
        Result withoutPrimes;
    } rows[] = {
        {"leading zeros", [](Numbers& n) { n.n.insert(n.n.begin(), 100, 0); }, ok, ok},
        {"n missing", [](Numbers& n) { n.n = {}; }, bad, bad},
        {"n even", [](Numbers& n) { n.n.back() ^= 1; }, bad, bad},
        {"n another", [](Numbers& n) { n.n.back() ^= 2; }, bad, bad},
        {"n of 511 bits", [](Numbers& n) { n.n = Bytes(64, 0x7f); }, bad, bad},
        {"n of 16,385 bits", [](Numbers& n) { n.n = Bytes(2049, 1); }, bad, bad},
        {"e = 0", [](Numbers& n) { n.e = {0}; }, bad, bad},
        {"e = 1 = d", [](Numbers& n) { n.e = n.d = n.dp = n.dq = {1}; }, bad, bad},
        {"e even", [](Numbers& n) { n.e = {4}; }, bad, bad},
        {"e another", [](Numbers& n) { n.e = {3}; }, bad, bad},
        {"e of 65 bits", [](Numbers& n) { n.e = Bytes(9, 1); }, bad, bad},
        {"d missing", [](Numbers& n) { n.d = {}; }, bad, bad},
        {"d even", [](Numbers& n) { n.d.back() ^= 1; }, bad, bad},
        {"d another", [](Numbers& n) { n.d.back() ^= 2; }, bad, bad},
        {"d = n", [](Numbers& n) { n.d = n.n; }, bad, bad},
        {"d too long", [](Numbers& n) { n.d = sum(beyond, numberOf(n.d)).bytes(); }, bad, bad},
        {"p missing", [](Numbers& n) { n.p = {}; }, bad, ok},
        {"p another", [](Numbers& n) { n.p.back() ^= 2; }, bad, ok},
        {"p even", [](Numbers& n) { n.p.back() ^= 1; }, bad, ok},
        {"p = 1, q = n", [](Numbers& n) { n.p = {1}, n.q = n.n; }, bad, ok},
        {"p and q short", [](Numbers& n) { n.p = n.q = {3}; }, bad, ok},
        {"q even", [](Numbers& n) { n.q.back() ^= 1; }, bad, ok},
        {"dp + p - 1", [](Numbers& n) { n.dp = sum(n.dp, sum(n.p, -1)).bytes(); }, bad, ok},
        {"dp too long", [](Numbers& n) { n.dp = sum(beyond, numberOf(n.dp)).bytes(); }, bad, ok},
        {"dq + q - 1", [](Numbers& n) { n.dq = sum(n.dq, sum(n.q, -1)).bytes(); }, bad, ok},
        {"qinv another", [](Numbers& n) { n.qinv.back() ^= 1; }, bad, ok},
        {"qinv + p", [](Numbers& n) { n.qinv = sum(n.qinv, numberOf(n.p)).bytes(); }, bad, ok},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        QorRsaKey key;
        Numbers numbers = good;
        row.change(numbers);
        EXPECT_EQ(row.withPrimes, key.SetPrivate(numbers.view()));
        EXPECT_EQ(row.withPrimes == Result::Ok, key.ModulusSize() > 0);
        EXPECT_EQ(row.withoutPrimes, key.SetPrivate(numbers.withoutPrimes().view()));
    }
    QorRsaPrivateNumbers numbers = good.view();
    numbers.dq.bytes = nullptr;
    EXPECT_EQ(Result::BadArgument, QorRsaKey().SetPrivate(numbers));
    EXPECT_EQ(Result::BadArgument, QorRsaKey().SetPublic({nullptr, 64}, numbers.e));
    numbers.e.size = 1; // the first byte of 65,537
    EXPECT_EQ(bad, QorRsaKey().SetPublic(numbers.n, numbers.e));
}

TEST(RsaKey, saysWhatIsWrongWithACall) {
    const RsaNumbers numbers = plainNumbers();
    const QorRsaKey key = keyOf(numbers);
    QorRsaKey publicKey;
    ASSERT_EQ(Result::Ok, publicKey.SetPublic(numbers.view().n, numbers.view().e));
    const QorRsaKey none;
    const Bytes in(k, 0);
    const unsigned char* const i = in.data();
    const unsigned char* const n = numbers.n.data();
    const unsigned char* const null = nullptr;
    Bytes out(k, 0xee);
    unsigned char* const o = out.data();
    std::size_t size = 99;
    const struct {
        Result expected;
        std::vector<Result> results;
    } rows[] = {
        {Result::NoKey,
         {none.PublicRaw(i, k, o, k), none.PrivateRaw(i, k, o, k), publicKey.SignSha1(i, o, k),
          publicKey.PrivateRaw(i, k, o, k), publicKey.DecryptType2(i, k, o, k, &size),
          QorRsaKey().CopyFrom(none)}},
        {Result::BadArgument,
         {key.PublicRaw(null, k, o, k), key.PrivateRaw(i, k, nullptr, k),
          key.SignType1(null, 1, o, k), key.VerifySha1(null, i, k),
          key.DecryptType2(i, k, o, k, nullptr), QorRsaKey().LoadDer(null, 1),
          QorRsaKey().LoadPem(nullptr, 1)}},
        {Result::WrongLength,
         {key.PublicRaw(i, k - 1, o, k), key.PublicRaw(i, k, o, k - 1),
          key.PrivateRaw(i, k + 1, o, k), key.SignType1(i, 1, o, k - 1),
          key.VerifyType1(i, 1, i, k - 1), key.DecryptType2(i, k, o, k - 12, &size),
          key.DecryptType2OrRandom(i, k, o, k - 10)}},
        {Result::MessageTooLarge,
         {key.PublicRaw(n, k, o, k), key.PrivateRaw(n, k, o, k), key.SignType1(i, k - 10, o, k),
          key.VerifyType1(i, k - 10, i, k), key.EncryptType2(i, k - 10, o, k)}},
        {Result::BadPadding, {key.RecoverType1(i, k, o, k, &size)}},
        {Result::BadSignature, {key.VerifyType1(i, 3, i, k)}},
        {Result::BadEncoding, {QorRsaKey().LoadDer(i, k), QorRsaKey().LoadPem("-----BEGIN", 10)}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(std::vector<Result>(row.results.size(), row.expected), row.results);
    }
    EXPECT_EQ(Bytes(k, 0xee), out);
    EXPECT_EQ(0U, size);
}

TEST(RsaKey, signsAndRecoversEverySizeOfData) {
    const QorRsaKey key = keyOf(plainNumbers());
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, k - 11}) {
        SCOPED_TRACE(size);
        const Bytes data(size, 0xff);
        const std::size_t less = size - 1; // too large a size where there are no data
        Bytes sealed(k);
        Bytes out(size, 0);
        std::size_t outSize = 0;
        ASSERT_EQ(Result::Ok, key.SignType1(data.data(), size, sealed.data(), k));
        EXPECT_EQ(Result::Ok, key.VerifyType1(data.data(), size, sealed.data(), k));
        EXPECT_NE(Result::Ok, key.VerifyType1(data.data(), less, sealed.data(), k));
        EXPECT_EQ(Result::Ok, key.RecoverType1(sealed.data(), k, out.data(), size, &outSize));
        EXPECT_TRUE(data == out && size == outSize);
        EXPECT_TRUE(size == 0 || key.RecoverType1(sealed.data(), k, out.data(), less, &outSize) ==
                                     Result::WrongLength);
    }
}

// What an attacker sends: blocks that are padded wrongly, or whose data have another size.
TEST(RsaKey, givesRandomBytesForABadBlock) {
    const QorRsaKey key = keyOf(plainNumbers());
    const Bytes good = numberOf(bytesOf(std::string(1, 2) + std::string(k - 19, 'x') +
                                        std::string(1, 0) + "0123456789abcdef"))
                           .bytes(k);
    const struct {
        const char* name;
        std::size_t at;
        unsigned char byte;
        Result plain;
        bool kept;
    } rows[] = {
        {"good", 2, 'x', Result::Ok, true},
        {"type 1", 1, 1, Result::BadPadding, false},
        {"longer data", k - 18, 0, Result::Ok, false},
        {"shorter data", k - 17, 1, Result::BadPadding, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes block = good;
        block[row.at] = row.byte;
        ASSERT_EQ(Result::Ok, key.PublicRaw(block.data(), k, block.data(), k));
        Bytes out(k);
        std::size_t size = 99;
        EXPECT_EQ(row.plain, key.DecryptType2(block.data(), k, out.data(), k - 11, &size));
        EXPECT_EQ(row.plain == Result::Ok, size > 0);
        Bytes twice[] = {Bytes(17, 0xee), Bytes(17, 0xee)};
        for (Bytes& each : twice) {
            EXPECT_EQ(Result::Ok, key.DecryptType2OrRandom(block.data(), k, each.data(), 16));
            EXPECT_EQ(row.kept, std::equal(good.end() - 16, good.end(), each.begin()));
            EXPECT_EQ(0xee, each[16]);
        }
        EXPECT_EQ(row.kept, twice[0] == twice[1]);
    }
}

TEST(RsaKey, servesManyThreadsAtOnce) {
    const QorRsaKey key = keyOf(plainNumbers());
    const auto work = [&key] {
        for (int i = 0; i < 60; i++) {
            Bytes signature(k);
            EXPECT_EQ(Result::Ok, key.SignType1(nullptr, 0, signature.data(), k));
            EXPECT_EQ(Result::Ok, key.VerifyType1(nullptr, 0, signature.data(), k));
        }
    };
    std::thread threads[] = {std::thread(work), std::thread(work), std::thread(work)};
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(RsaKey, copiesMovesAndKeepsWhatFailsToBeReplaced) {
    QorRsaKey key = keyOf(plainNumbers());
    QorRsaKey copy;
    ASSERT_EQ(Result::Ok, copy.CopyFrom(key));
    EXPECT_EQ(Result::BadEncoding, copy.LoadPem("", 0));
    QorRsaKey moved(std::move(key));
    key.Clear();
    key = std::move(moved);
    EXPECT_TRUE(key.IsPrivate() && copy.IsPrivate() && moved.ModulusSize() == 0);
    Bytes signature(k);
    EXPECT_EQ(Result::Ok, key.SignType1(nullptr, 0, signature.data(), k));
    EXPECT_EQ(Result::Ok, copy.VerifyType1(nullptr, 0, signature.data(), k));
}

// The openssl command with its own keys: each side takes what the other one makes.
class RsaPeer : public testing::TestWithParam<int> {
protected:
    void openssl(const std::string& arguments) {
        const std::string command =
            "cd " + files.path() + " && openssl " + arguments + " >log 2>&1";
        ASSERT_EQ(0, std::system(command.c_str())) << command << "\n" << files.read("log");
    }
    void write(const std::string& name, const Bytes& bytes) {
        files.write(name, std::string(bytes.begin(), bytes.end()));
    }
    Bytes read(const std::string& name) {
        return bytesOf(files.read(name));
    }
    // The key in a form that the command writes, in PEM or in DER.
    QorRsaKey load(const std::string& options, bool inDer) {
        openssl("rsa -in key -out form " + options + (inDer ? " -outform DER" : ""));
        const std::string pem = files.read("form");
        const Bytes der = read("form");
        QorRsaKey key;
        EXPECT_EQ(Result::Ok, inDer ? key.LoadDer(der.data(), der.size())
                                    : key.LoadPem(pem.data(), pem.size()));
        return key;
    }

    support::TempDirectory files;
};

TEST_P(RsaPeer, understandsEachOther) {
    openssl("genrsa -out key " + std::to_string(GetParam()));
    openssl("rsa -in key -pubout -out public");
    const QorRsaKey key = load("", false);
    const QorRsaKey traditional = load("-traditional", true);
    const QorRsaKey publicKey = load("-pubout", false);
    const QorRsaKey plainPublic = load("-RSAPublicKey_out", true);
    EXPECT_TRUE(key.IsPrivate() && traditional.IsPrivate() && !publicKey.IsPrivate());
    const Bytes data = bytesOf("thirty-two bytes are enough here");
    write("data", data);
    Bytes out(key.ModulusSize());
    unsigned char* const o = out.data();
    std::size_t size = out.size();

    openssl("dgst -sha1 -sign key -out signature data");
    unsigned char digest[QOR_SHA1_SIZE];
    QorSha1(data.data(), data.size(), digest);
    const Bytes signature = read("signature");
    EXPECT_EQ(Result::Ok, publicKey.VerifySha1(digest, signature.data(), size));
    EXPECT_EQ(Result::Ok, traditional.SignSha1(digest, o, size));
    EXPECT_EQ(signature, out);
    digest[19] ^= 1;
    EXPECT_EQ(Result::BadSignature, plainPublic.VerifySha1(digest, signature.data(), size));

    EXPECT_EQ(Result::Ok, key.SignType1(data.data(), data.size(), o, size));
    write("signature", out);
    openssl("pkeyutl -verifyrecover -pubin -inkey public -in signature -out recovered");
    EXPECT_EQ(data, read("recovered"));

    EXPECT_EQ(Result::Ok, plainPublic.EncryptType2(data.data(), data.size(), o, size));
    write("encrypted", out);
    openssl("pkeyutl -decrypt -inkey key -in encrypted -out decrypted");
    EXPECT_EQ(data, read("decrypted"));

    openssl("pkeyutl -encrypt -pubin -inkey public -in data -out encrypted");
    const Bytes encrypted = read("encrypted");
    EXPECT_EQ(Result::Ok, key.DecryptType2(encrypted.data(), size, o, size, &size));
    EXPECT_EQ(data, Bytes(o, o + size));
}

INSTANTIATE_TEST_SUITE_P(KeySizes, RsaPeer, testing::Values(512, 768, 1024, 1031, 2048, 3072, 4096),
                         testing::PrintToStringParamName());

} // namespace
