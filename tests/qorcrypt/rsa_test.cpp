#include "qorcrypto_rsa.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "gmp_number.h"
#include "qorcrypto_sha1.h"
#include "temp_directory.h"

namespace {

using Result = QorRsaResult;

// The key that most tests use, of 1,128 bits.
const RsaNumbers numbers(607, 521);
constexpr std::size_t k = 141;

QorRsaKey keyOf(const RsaNumbers& parts) {
    QorRsaKey key;
    EXPECT_EQ(parts.setInto(key), Result::Ok);
    return key;
}

// GMP made the keys' numbers; the peer below says that the public operation is right.
TEST(RsaKey, TakesBackEachOperationByTheOther) {
    for (const RsaNumbers& parts :
         {numbers, numbers.withoutPrimes(), RsaNumbers(607, 1279, 5), RsaNumbers(7, 607, 5),
          RsaNumbers(61, 521, 257).withoutPrimes(), RsaNumbers(1279, 607, 0xfffffffb)}) {
        const QorRsaKey key = keyOf(parts);
        const std::size_t size = key.ModulusSize();
        for (const mpz_class& message : {mpz_class(0), parts.d, mpz_class(parts.n - 1)}) {
            Bytes block = bytesOf(message, size);
            EXPECT_EQ(key.PrivateRaw(block.data(), size, block.data(), size), Result::Ok);
            EXPECT_EQ(block != bytesOf(message, size), message == parts.d);
            EXPECT_EQ(key.PublicRaw(block.data(), size, block.data(), size), Result::Ok);
            EXPECT_EQ(block, bytesOf(message, size)) << size;
        }
    }
}

TEST(RsaKey, RefusesNumbersThatMakeNoKey) {
    enum Part { none, publicPart, allButPrimes };
    const struct {
        const char* name;
        Part taken;
        void (*change)(RsaNumbers& n);
    } rows[] = {
        {"n even", none, [](RsaNumbers& n) { n.n += 1; }},
        {"n of 511 bits", none, [](RsaNumbers& n) { n.n = (mpz_class(1) << 511) - 1; }},
        {"n of 16,385 bits", none, [](RsaNumbers& n) { n.n = (mpz_class(1) << 16384) + 1; }},
        {"e = 1 = d", none, [](RsaNumbers& n) { n.e = n.d = n.dp = n.dq = 1; }},
        {"e even", none, [](RsaNumbers& n) { n.e = 4; }},
        {"e of 65 bits", none, [](RsaNumbers& n) { n.e += mpz_class(1) << 64; }},
        {"d above n", publicPart, [](RsaNumbers& n) { n.d += 2 * (n.p - 1) * (n.q - 1); }},
        {"p missing", allButPrimes, [](RsaNumbers& n) { n.p = 0; }},
        {"short primes", allButPrimes, [](RsaNumbers& n) { n.p = n.q = n.dp = n.dq = n.qinv = 3; }},
        {"dp too long", allButPrimes, [](RsaNumbers& n) { n.dp += mpz_class(1) << 2048; }},
        {"dq + q - 1", allButPrimes, [](RsaNumbers& n) { n.dq += n.q - 1; }},
        {"qinv + p", allButPrimes, [](RsaNumbers& n) { n.qinv += n.p; }},
    };
    for (const auto& row : rows) {
        RsaNumbers changed = numbers;
        row.change(changed);
        const Bytes n = bytesOf(changed.n);
        const Bytes e = bytesOf(changed.e);
        QorRsaKey key;
        const Result asPublic = key.SetPublic({n.data(), n.size()}, {e.data(), e.size()});
        const Result plain = changed.withoutPrimes().setInto(key);
        EXPECT_EQ(asPublic, row.taken == none ? Result::BadKey : Result::Ok) << row.name;
        EXPECT_EQ(plain, row.taken == allButPrimes ? Result::Ok : Result::BadKey) << row.name;
        EXPECT_EQ(changed.setInto(key), Result::BadKey) << row.name;
    }
}

TEST(RsaKey, SaysWhatIsWrongWithACall) {
    const QorRsaKey key = keyOf(numbers);
    const Bytes in(k, 0);
    const Bytes modulus = bytesOf(numbers.n);
    const unsigned char* const i = in.data();
    const unsigned char* const n = modulus.data();
    QorRsaKey publicKey;
    ASSERT_EQ(publicKey.SetPublic({n, k}, {n, 1}), Result::Ok);
    Bytes out(k);
    unsigned char* const o = out.data();
    std::size_t size = 99;
    const auto expectAll = [](Result expected, const std::vector<Result>& results) {
        EXPECT_EQ(results, std::vector<Result>(results.size(), expected));
    };
    expectAll(Result::NoKey, {QorRsaKey().PublicRaw(i, k, o, k), publicKey.SignSha1(i, o, k),
                              QorRsaKey().CopyFrom(QorRsaKey())});
    expectAll(Result::BadArgument,
              {key.PrivateRaw(i, k, nullptr, k), key.SignType1(nullptr, 1, o, k),
               key.DecryptType2(i, k, o, k, nullptr), QorRsaKey().LoadDer(nullptr, 1),
               QorRsaKey().LoadPem(nullptr, 1), QorRsaKey().SetPublic({n, k}, {nullptr, 1}),
               QorRsaKey().SetPrivate({{n, k}, {n, k}, {nullptr, k}, {}, {}, {}, {}, {}})});
    expectAll(Result::WrongLength,
              {key.PublicRaw(i, k - 1, o, k), key.PublicRaw(i, k, o, k - 1),
               key.PrivateRaw(i, k + 1, o, k), key.DecryptType2(i, k, o, k - 12, &size),
               key.DecryptType2OrRandom(i, k, o, k - 10)});
    expectAll(Result::MessageTooLarge,
              {key.PublicRaw(n, k, o, k), key.PrivateRaw(n, k, o, k),
               key.SignType1(i, k - 10, o, k), key.EncryptType2(i, k - 10, o, k)});
    EXPECT_TRUE(out == in && size == 0) << "untouched";
}

// Signed blocks with sixteen bytes of data, one of their bytes changed.
TEST(RsaKey, RecoversFromWholeBlocksOnly) {
    const QorRsaKey key = keyOf(numbers);
    const struct {
        const char* name;
        std::size_t at;
        unsigned char byte;
        std::size_t recovered; // bytes; 0 where the padding is bad
    } rows[] = {
        {"first byte", 0, 1, 0},       {"other type", 1, 2, 0},
        {"filler too short", 9, 0, 0}, {"shortest filler", 10, 0, k - 11},
        {"other filler", 11, 7, 0},    {"no separator", k - 17, 0xff, 0},
    };
    for (const auto& row : rows) {
        Bytes block(k, 0xff);
        block[0] = block[k - 17] = 0;
        block[1] = 1;
        block[row.at] = row.byte;
        std::size_t size = 99;
        EXPECT_EQ(key.PrivateRaw(block.data(), k, block.data(), k), Result::Ok);
        EXPECT_EQ(key.RecoverType1(block.data(), k, Bytes(k).data(), k, &size),
                  row.recovered == 0 ? Result::BadPadding : Result::Ok)
            << row.name;
        EXPECT_EQ(size, row.recovered) << row.name;
    }
}

TEST(RsaKey, ServesManyThreadsAtOnce) {
    const QorRsaKey key = keyOf(numbers);
    const auto work = [&key] {
        for (int i = 0; i < 60; i++) {
            Bytes signature(k);
            EXPECT_EQ(key.SignType1(nullptr, 0, signature.data(), k), Result::Ok);
            EXPECT_EQ(key.VerifyType1(nullptr, 0, signature.data(), k), Result::Ok);
        }
    };
    std::thread other(work);
    work();
    other.join();
}

// The openssl command with its own keys: each side takes what the other one makes.
class RsaPeer : public testing::TestWithParam<int> {
protected:
    // What the command writes to its standard output.
    Bytes openssl(const std::string& arguments, const Bytes& in = {}) {
        files.write("in", std::string(in.begin(), in.end()));
        const std::string command =
            "cd " + files.path() + " && openssl " + arguments + " <in >out 2>log";
        EXPECT_EQ(std::system(command.c_str()), 0) << command << files.read("log");
        const std::string out = files.read("out");
        return Bytes(out.begin(), out.end());
    }
    // The key in a form that the command writes, in PEM or in DER.
    QorRsaKey load(const std::string& options) {
        const Bytes form = openssl("rsa -in key " + options);
        const auto* const pem = reinterpret_cast<const char*>(form.data());
        QorRsaKey key;
        if (key.LoadPem(pem, form.size()) != Result::Ok) {
            EXPECT_EQ(key.LoadDer(form.data(), form.size()), Result::Ok);
        }
        return key;
    }

    support::TempDirectory files;
};

TEST_P(RsaPeer, UnderstandsEachOther) {
    openssl((GetParam() == 1031 ? "genrsa -3 -out key " : "genrsa -out key ") +
            std::to_string(GetParam()));
    openssl("rsa -in key -pubout -out public");
    const QorRsaKey key = load("");
    const QorRsaKey traditional = load("-traditional -outform DER");
    const QorRsaKey publicKey = load("-pubout");
    const QorRsaKey plainPublic = load("-RSAPublicKey_out -outform DER");
    const Bytes data(32, 'x');
    std::size_t size = key.ModulusSize();
    std::size_t recovered = 0;
    Bytes out(size);
    unsigned char* const o = out.data();
    unsigned char digest[QOR_SHA1_SIZE];
    QorSha1(data.data(), data.size(), digest);

    const Bytes signature = openssl("dgst -sha1 -sign key", data);
    EXPECT_EQ(publicKey.VerifySha1(digest, signature.data(), size), Result::Ok);
    EXPECT_EQ(traditional.SignSha1(digest, o, size), Result::Ok);
    EXPECT_EQ(out, signature);
    EXPECT_EQ(plainPublic.RecoverType1(signature.data(), size, o, 34, &recovered),
              Result::WrongLength);
    EXPECT_EQ(plainPublic.RecoverType1(signature.data(), size, o, 35, &recovered), Result::Ok);
    EXPECT_EQ(hex(o + recovered - 20, 20), hex(digest, 20));
    digest[19] ^= 1;
    EXPECT_EQ(plainPublic.VerifySha1(digest, signature.data(), size), Result::BadSignature);

    EXPECT_EQ(key.SignType1(data.data(), data.size(), o, size), Result::Ok);
    EXPECT_EQ(openssl("pkeyutl -verifyrecover -pubin -inkey public", out), data);
    EXPECT_EQ(plainPublic.EncryptType2(data.data(), data.size(), o, size), Result::Ok);
    EXPECT_EQ(openssl("pkeyutl -decrypt -inkey key", out), data);

    const Bytes encrypted = openssl("pkeyutl -encrypt -pubin -inkey public", data);
    EXPECT_EQ(key.DecryptType2(encrypted.data(), size, o, size, &size), Result::Ok);
    EXPECT_EQ(Bytes(o, o + size), data);
}

INSTANTIATE_TEST_SUITE_P(KeySizes, RsaPeer, testing::Values(512, 1024, 1031, 2048, 3072, 4096),
                         testing::PrintToStringParamName());

} // namespace
