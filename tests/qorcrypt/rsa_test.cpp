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

// The key that most tests use, of 1,128 bits.
RsaNumbers plainNumbers() {
    return RsaNumbers::ofMersennePrimes(607, 521);
}

QorRsaKey keyOf(const RsaNumbers& numbers) {
    QorRsaKey key;
    EXPECT_EQ(Result::Ok, key.SetPrivate(numbers.view()));
    return key;
}

GmpNumber numberOf(const Bytes& bytes) {
    GmpNumber number;
    mpz_import(number, bytes.size(), 1, 1, 0, 0, bytes.data());
    return number;
}

Bytes minus(const Bytes& a, long less) {
    GmpNumber number = numberOf(a);
    mpz_sub(number, number, GmpNumber(less));
    return number.bytes(a.size());
}

// Both operations against GMP's powers; for small keys also with the smallest messages and the
// largest.
void compareRaw(const RsaNumbers& numbers, const std::string& name) {
    const QorRsaKey key = keyOf(numbers);
    ASSERT_TRUE(key.IsPrivate());
    EXPECT_EQ(mpz_sizeinbase(numberOf(numbers.n), 2), key.ModulusBits());
    const std::size_t size = key.ModulusSize();
    std::vector<GmpNumber> messages = {numberOf(numbers.p), numberOf(minus(numbers.n, 12345))};
    if (key.ModulusBits() < 2000) {
        messages.insert(messages.end(), {0, 1, 2, numberOf(minus(numbers.n, 1))});
    }
    for (const GmpNumber& message : messages) {
        SCOPED_TRACE(name + " with message " + message.hex());
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
        const std::string name = std::to_string(row.p) + " and " + std::to_string(row.q) + " bits";
        const RsaNumbers numbers = RsaNumbers::ofMersennePrimes(row.p, row.q, row.e);
        compareRaw(numbers, name);
        if (row.p + row.q < 3000) {
            compareRaw(numbers.withoutPrimes(), name + ", no primes");
        }
    }
}

TEST(RsaKey, refusesNumbersThatMakeNoKey) {
    const RsaNumbers good = plainNumbers();
    const Result ok = Result::Ok;
    const Result bad = Result::BadKey;
    using Numbers = RsaNumbers;
    const struct {
        const char* name;
        std::function<void(Numbers&)> change;
        Result withPrimes;
        Result withoutPrimes;
    } rows[] = {
        {"unchanged", [](Numbers&) {}, ok, ok},
        {"leading zeros", [](Numbers& k) { k.n.insert(k.n.begin(), 100, 0); }, ok, ok},
        {"n missing", [](Numbers& k) { k.n = {}; }, bad, bad},
        {"n even", [](Numbers& k) { k.n.back() ^= 1; }, bad, bad},
        {"n another", [](Numbers& k) { k.n.back() ^= 2; }, bad, bad},
        {"n of 511 bits", [](Numbers& k) { k.n = Bytes(64, 0x7f); }, bad, bad},
        {"n of 16,385 bits", [](Numbers& k) { k.n = Bytes(2049, 1); }, bad, bad},
        {"e missing", [](Numbers& k) { k.e = {}; }, bad, bad},
        {"e = 0", [](Numbers& k) { k.e = {0}; }, bad, bad},
        {"e = 1", [](Numbers& k) { k.e = {1}; }, bad, bad},
        {"e = 1 = d", [](Numbers& k) { k.e = k.d = k.dp = k.dq = {1}; }, bad, bad},
        {"e even", [](Numbers& k) { k.e = {4}; }, bad, bad},
        {"e another", [](Numbers& k) { k.e = {3}; }, bad, bad},
        {"e of 65 bits", [](Numbers& k) { k.e = Bytes(9, 1); }, bad, bad},
        {"d missing", [](Numbers& k) { k.d = {}; }, bad, bad},
        {"d even", [](Numbers& k) { k.d.back() ^= 1; }, bad, bad},
        {"d another", [](Numbers& k) { k.d.back() ^= 2; }, bad, bad},
        {"d = n", [](Numbers& k) { k.d = k.n; }, bad, bad},
        {"d too long", [](Numbers& k) { k.d.insert(k.d.begin(), 200, 1); }, bad, bad},
        {"p missing", [](Numbers& k) { k.p = {}; }, bad, ok},
        {"p another", [](Numbers& k) { k.p.back() ^= 2; }, bad, ok},
        {"p even", [](Numbers& k) { k.p.back() ^= 1; }, bad, ok},
        {"p = 1, q = n", [](Numbers& k) { k.p = {1}, k.q = k.n; }, bad, ok},
        {"p larger than n", [](Numbers& k) { k.p = Bytes(300, 0xff); }, bad, ok},
        {"p and q exchanged", [](Numbers& k) { std::swap(k.p, k.q); }, bad, ok},
        {"p and q short", [](Numbers& k) { k.p = k.q = {3}; }, bad, ok},
        {"q missing", [](Numbers& k) { k.q = {}; }, bad, ok},
        {"q another", [](Numbers& k) { k.q.back() ^= 2; }, bad, ok},
        {"dp missing", [](Numbers& k) { k.dp = {}; }, bad, ok},
        {"dp another", [](Numbers& k) { k.dp.back() ^= 2; }, bad, ok},
        {"dp too long", [](Numbers& k) { k.dp.insert(k.dp.begin(), 99, 1); }, bad, ok},
        {"dq another", [](Numbers& k) { k.dq.back() ^= 2; }, bad, ok},
        {"qinv another", [](Numbers& k) { k.qinv.back() ^= 1; }, bad, ok},
        {"qinv not reduced",
         [](Numbers& k) {
             GmpNumber sum = numberOf(k.qinv);
             mpz_add(sum, sum, numberOf(k.p));
             k.qinv = sum.bytes();
         },
         bad, ok},
    };
    for (const auto& row : rows) {
        QorRsaKey key;
        RsaNumbers numbers = good;
        row.change(numbers);
        EXPECT_EQ(row.withPrimes, key.SetPrivate(numbers.view())) << row.name;
        EXPECT_EQ(row.withPrimes == Result::Ok, key.ModulusSize() > 0) << row.name;
        EXPECT_EQ(row.withoutPrimes, key.SetPrivate(numbers.withoutPrimes().view()))
            << row.name << ", without primes";
    }
    QorRsaKey key;
    QorRsaPrivateNumbers numbers = good.view();
    numbers.dq.bytes = nullptr;
    EXPECT_EQ(Result::BadArgument, key.SetPrivate(numbers));
    EXPECT_EQ(Result::BadArgument, key.SetPublic({nullptr, 64}, numbers.e));
}

TEST(RsaKey, saysWhatIsWrongWithACall) {
    const RsaNumbers numbers = plainNumbers();
    const QorRsaKey key = keyOf(numbers);
    QorRsaKey publicKey;
    ASSERT_EQ(Result::Ok, publicKey.SetPublic(numbers.view().n, numbers.view().e));
    const QorRsaKey none;
    const std::size_t k = key.ModulusSize();
    const Bytes in(k, 0);
    const Bytes n = numbers.n;
    const unsigned char* const i = in.data();
    Bytes out(k, 0xee);
    unsigned char* const o = out.data();
    std::size_t size = 99;
    const struct {
        const char* name;
        Result expected;
        Result result;
    } rows[] = {
        {"no key, public", Result::NoKey, none.PublicRaw(i, k, o, k)},
        {"no key, private", Result::NoKey, none.PrivateRaw(i, k, o, k)},
        {"public key, private", Result::NoKey, publicKey.PrivateRaw(i, k, o, k)},
        {"public key, sign", Result::NoKey, publicKey.SignSha1(i, o, k)},
        {"public key, decrypt", Result::NoKey, publicKey.DecryptType2(i, k, o, k, &size)},
        {"null in", Result::BadArgument, key.PublicRaw(nullptr, k, o, k)},
        {"null out", Result::BadArgument, key.PrivateRaw(i, k, nullptr, k)},
        {"null data", Result::BadArgument, key.SignType1(nullptr, 1, o, k)},
        {"null digest", Result::BadArgument, key.VerifySha1(nullptr, i, k)},
        {"null size", Result::BadArgument, key.DecryptType2(i, k, o, k, nullptr)},
        {"public, in short", Result::WrongLength, key.PublicRaw(i, k - 1, o, k)},
        {"public, out short", Result::WrongLength, key.PublicRaw(i, k, o, k - 1)},
        {"private, in long", Result::WrongLength, key.PrivateRaw(i, k + 1, o, k)},
        {"private, out short", Result::WrongLength, key.PrivateRaw(i, k, o, k - 1)},
        {"sign, out short", Result::WrongLength, key.SignType1(i, 1, o, k - 1)},
        {"verify, in short", Result::WrongLength, key.VerifyType1(i, 1, i, k - 1)},
        {"decrypt, out short", Result::WrongLength, key.DecryptType2(i, k, o, k - 12, &size)},
        {"decrypt, too many wanted", Result::WrongLength,
         key.DecryptType2OrRandom(i, k, o, k - 10)},
        {"public, n", Result::MessageTooLarge, key.PublicRaw(n.data(), k, o, k)},
        {"private, n", Result::MessageTooLarge, key.PrivateRaw(n.data(), k, o, k)},
        {"verify, n", Result::MessageTooLarge, key.VerifySha1(i, n.data(), k)},
        {"sign, too long", Result::MessageTooLarge, key.SignType1(i, k - 10, o, k)},
        {"verify, too long", Result::MessageTooLarge, key.VerifyType1(i, k - 10, i, k)},
        {"encrypt, too long", Result::MessageTooLarge, key.EncryptType2(i, k - 10, o, k)},
        {"recover, no padding", Result::BadPadding, key.RecoverType1(i, k, o, k, &size)},
        {"verify, another", Result::BadSignature, key.VerifyType1(i, 3, i, k)},
        {"DER, null", Result::BadArgument, QorRsaKey().LoadDer(nullptr, 1)},
        {"DER, none", Result::BadEncoding, QorRsaKey().LoadDer(i, k)},
        {"PEM, null", Result::BadArgument, QorRsaKey().LoadPem(nullptr, 1)},
        {"PEM, none", Result::BadEncoding, QorRsaKey().LoadPem("-----BEGIN", 10)},
        {"copy of none", Result::NoKey, QorRsaKey().CopyFrom(none)},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.expected, row.result) << row.name;
    }
    EXPECT_EQ(Bytes(k, 0xee), out);
    EXPECT_EQ(0U, size);
}

TEST(RsaKey, signsAndRecoversEverySizeOfData) {
    const QorRsaKey key = keyOf(plainNumbers());
    const std::size_t k = key.ModulusSize();
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, k - 12, k - 11}) {
        SCOPED_TRACE(size);
        const Bytes data(size, 0xff);
        Bytes signature(k);
        ASSERT_EQ(Result::Ok, key.SignType1(data.data(), size, signature.data(), k));
        EXPECT_EQ(Result::Ok, key.VerifyType1(data.data(), size, signature.data(), k));
        Bytes out(size, 0);
        std::size_t outSize = 0;
        EXPECT_EQ(Result::Ok, key.RecoverType1(signature.data(), k, out.data(), size, &outSize));
        EXPECT_EQ(data, out);
        EXPECT_EQ(size, outSize);
        if (size > 0) {
            EXPECT_EQ(Result::WrongLength,
                      key.RecoverType1(signature.data(), k, out.data(), size - 1, &outSize));
            EXPECT_EQ(Result::BadSignature,
                      key.VerifyType1(data.data(), size - 1, signature.data(), k));
        }
    }
}

// What an attacker sends: blocks that are padded wrongly, or whose data have another size.
TEST(RsaKey, givesRandomBytesForABadBlock) {
    const QorRsaKey key = keyOf(plainNumbers());
    const std::size_t k = key.ModulusSize();
    const Bytes data = bytesOf("0123456789abcdef");
    Bytes good(k, 0x55);
    good[0] = 0;
    good[1] = 2;
    good[k - 17] = 0;
    std::copy(data.begin(), data.end(), good.end() - 16);
    const struct {
        const char* name;
        std::size_t at;
        unsigned char byte;
        Result plain;
        bool kept;
    } rows[] = {
        {"good", 2, 0x55, Result::Ok, true},
        {"type 1", 1, 1, Result::BadPadding, false},
        {"short padding", 9, 0, Result::BadPadding, false},
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
        Bytes first(17, 0xee);
        Bytes second(17, 0xee);
        EXPECT_EQ(Result::Ok, key.DecryptType2OrRandom(block.data(), k, first.data(), 16));
        EXPECT_EQ(Result::Ok, key.DecryptType2OrRandom(block.data(), k, second.data(), 16));
        EXPECT_EQ(row.kept, first == second);
        EXPECT_EQ(row.kept, std::equal(data.begin(), data.end(), first.begin()));
        EXPECT_EQ(0xee, first[16]);
    }
}

TEST(RsaKey, servesManyThreadsAtOnce) {
    const QorRsaKey key = keyOf(plainNumbers());
    const std::size_t k = key.ModulusSize();
    std::vector<std::thread> threads;
    for (unsigned char t = 0; t < 4; t++) {
        threads.emplace_back([&key, k, t] {
            for (int i = 0; i < 40; i++) {
                Bytes signature(k);
                EXPECT_EQ(Result::Ok, key.SignType1(&t, 1, signature.data(), k));
                EXPECT_EQ(Result::Ok, key.VerifyType1(&t, 1, signature.data(), k));
            }
        });
    }
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
    const std::size_t k = key.ModulusSize();
    Bytes ours(k);
    Bytes theirs(k);
    EXPECT_EQ(Result::Ok, key.SignType1(nullptr, 0, ours.data(), k));
    EXPECT_EQ(Result::Ok, copy.SignType1(nullptr, 0, theirs.data(), k));
    EXPECT_EQ(ours, theirs);
    EXPECT_EQ(0U, moved.ModulusSize());
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

    support::TempDirectory files;
};

TEST_P(RsaPeer, understandsEachOther) {
    openssl("genrsa -out key " + std::to_string(GetParam()));
    openssl("rsa -in key -pubout -out public");
    const std::string pem = files.read("key");
    const std::string publicPem = files.read("public");
    QorRsaKey key;
    QorRsaKey publicKey;
    ASSERT_EQ(Result::Ok, key.LoadPem(pem.data(), pem.size()));
    ASSERT_EQ(Result::Ok, publicKey.LoadPem(publicPem.data(), publicPem.size()));
    const std::size_t k = key.ModulusSize();
    const Bytes data = bytesOf("thirty-two bytes are enough here");
    write("data", data);
    Bytes out(k);
    std::size_t size = 0;

    openssl("dgst -sha1 -sign key -out signature data");
    Bytes digest(QOR_SHA1_SIZE);
    QorSha1(data.data(), data.size(), digest.data());
    const Bytes signature = bytesOf(files.read("signature"));
    EXPECT_EQ(Result::Ok, publicKey.VerifySha1(digest.data(), signature.data(), signature.size()));
    digest[19] ^= 1;
    EXPECT_EQ(Result::BadSignature,
              publicKey.VerifySha1(digest.data(), signature.data(), signature.size()));
    digest[19] ^= 1;
    EXPECT_EQ(Result::Ok, key.SignSha1(digest.data(), out.data(), k));
    EXPECT_EQ(signature, out);

    EXPECT_EQ(Result::Ok, key.SignType1(data.data(), data.size(), out.data(), k));
    write("signature", out);
    openssl("pkeyutl -verifyrecover -pubin -inkey public -in signature -out recovered");
    EXPECT_EQ(data, bytesOf(files.read("recovered")));

    openssl("pkeyutl -encrypt -pubin -inkey public -in data -out encrypted");
    const Bytes encrypted = bytesOf(files.read("encrypted"));
    EXPECT_EQ(Result::Ok,
              key.DecryptType2(encrypted.data(), encrypted.size(), out.data(), k, &size));
    EXPECT_EQ(data, Bytes(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(size)));

    EXPECT_EQ(Result::Ok, publicKey.EncryptType2(data.data(), data.size(), out.data(), k));
    write("encrypted", out);
    openssl("pkeyutl -decrypt -inkey key -in encrypted -out decrypted");
    EXPECT_EQ(data, bytesOf(files.read("decrypted")));
}

INSTANTIATE_TEST_SUITE_P(KeySizes, RsaPeer, testing::Values(512, 768, 1024, 1031, 2048, 3072, 4096),
                         testing::PrintToStringParamName());

} // namespace
