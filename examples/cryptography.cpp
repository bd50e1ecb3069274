// Checks a signature of the maker's, and tests numbers with a random base.
#include <cstdio>
#include <cstring>

#include "base64.h"
#include "qorcrypto.h"

namespace {

constexpr char makersKey[] = "-----BEGIN PUBLIC KEY-----\n"
                             "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEAuTzrJlFwAYbm+q1sQ/7A\n"
                             "6uD1WjPvMYgTsSBBhNOvXIz2r8cEPC/va2MPg/Pj9wTJy9gr1IZ6qq2vY1pcQ36X\n"
                             "5AfPw1shAjpA69PzmWUDy+FjMmf20MD7Z16JV7y85q0wEwB7eKzO895Pm8z1o2vB\n"
                             "mLMb2JTChuDMoel4adL0ij1RDIvkHDRQT19cN3GZEcDedQDleZGIMq6TnTqnf7Ls\n"
                             "bLUeBYwAKpUnPZaDZ9QHuNgym9TDLDhwPAs2ZU8ODJTtEA7IsRrqYqkvauG4FuoH\n"
                             "emIQpc4L+RCaS0IIaKs+QwCP7lyhsrwdG5t/1Meo161XN/Dz8h9mvBs42GXN6gvD\n"
                             "SQIDAQAB\n"
                             "-----END PUBLIC KEY-----\n";
constexpr char signature[] = "Q3B8jiqPTm6axRePcOap7GQBwL6fLkH0ktzBwhu0qrAyYjLXuf+YeBx1smt/vvcg"
                             "k1XD2CcL3MQ2cRGYZ98GTQlm5aTmzcV987fKQBS7123aM7BLeQpo9+VvOaalPn8Q"
                             "dFhnkiGtHMLsZIeo/7CULQqahxo4J8Hn5neCdg6wX17KHLkXCy+I7AWEWTVt29nl"
                             "BCKDKAfZAYKLUsFwHW1Dc3i7POMysgc0sfTSnlII/Re2wqLraDmc3RGHuUooaQ1N"
                             "tNYrOd61MNR2LV50lhM1YuoCg710J8zcAgghX8fdJopj03gJjAn532rFI1iY1MKW"
                             "8r2iSce5sIVDCjiV7Z7mVQ==";

bool isFromMaker(const char* text) {
    QorRsaKey key;
    unsigned char digest[QOR_SHA1_SIZE];
    unsigned char block[256];
    const unsigned int size = Base64Decode(reinterpret_cast<const unsigned char*>(signature),
                                           sizeof signature - 1, block, sizeof block);
    return key.LoadPem(makersKey, sizeof makersKey - 1) == QorRsaResult::Ok &&
           QorSha1(text, std::strlen(text), digest) != 0 &&
           key.VerifySha1(digest, block, size) == QorRsaResult::Ok;
}

// Fermat's test to a random base: true for every prime, and for hardly any other odd number.
bool seemsPrime(const QorBigNum& number) {
    unsigned char random[QorRsaKey::MaxBits / 8];
    const std::size_t size = number.ByteLength();
    QorBigNum one;
    QorBigNum exponent;
    QorBigNum base;
    return size <= sizeof random && QorRandomBytes(random, size) != 0 &&
           base.SetBytes(random, size) && one.SetWord(1) && exponent.Subtract(number, one) &&
           base.ModExp(base, exponent, number) && base.Compare(one) == 0;
}

} // namespace

int main() {
    std::printf("build 1204: %d, build 1205: %d\n", isFromMaker("Example Client, build 1204"),
                isFromMaker("Example Client, build 1205"));

    QorBigNum one;
    QorBigNum number;
    for (std::size_t bits = 521; bits <= 523; bits += 2) {
        if (!one.SetWord(1) || !number.ShiftLeft(one, bits) || !number.Subtract(number, one)) {
            return 1;
        }
        std::printf("2^%zu - 1 %s\n", bits, seemsPrime(number) ? "seems prime" : "is composite");
    }
    return 0;
}
