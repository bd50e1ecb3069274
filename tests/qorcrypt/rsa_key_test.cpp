// RSA keys in DER and PEM.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base64.h"
#include "hex.h"
#include "qorcrypt/src/rsa_key_der.h"
#include "qorcrypt/src/rsa_pem.h"

namespace {

using qorcrypt::RsaKeyParts;

// Numbers of one byte: n = 5, e = 3, all others 1.
const std::string numbers = "020105020103020101020101020101020101020101020101";
const std::string rsa = "300d06092a864886f70d0101010500";
const std::string pkcs1Public = "3006020105020103";
const std::string publicKey = "301a" + rsa + "0309003006020105020103";
const std::string pkcs1 = "301b020100" + numbers;
const std::string pkcs8 = "3031020100" + rsa + "041d" + pkcs1;
const std::string publicParts = "05 03       ";
const std::string privateParts = "05 03 01 01 01 01 01 01 ";

std::string partsOf(const RsaKeyParts& key) {
    std::string text;
    for (const QorRsaNumber& number :
         {key.n, key.e, key.d, key.p, key.q, key.dp, key.dq, key.qinv}) {
        text += hex(number.bytes, number.size) + " ";
    }
    return text;
}

// The numbers in hexadecimal, or nothing where the input is refused.
std::string readPem(const std::string& text) {
    const std::vector<char> exact(text.begin(), text.end());
    RsaKeyParts key{};
    qorcrypt::RsaPem pem;
    const bool isKey = pem.read(exact.data(), exact.size(), &key) == QorRsaResult::Ok;
    return isKey ? partsOf(key) : partsOf(key) == partsOf({}) ? "" : "touched";
}

std::string readDer(const Bytes& der) {
    RsaKeyParts key{};
    const bool isKey = qorcrypt::readPrivateKeyDer(der.data(), der.size(), &key) ||
                       qorcrypt::readPublicKeyDer(der.data(), der.size(), &key);
    return isKey ? partsOf(key) : partsOf(key) == partsOf({}) ? "" : "touched";
}

std::string pemOf(const std::string& label, const std::string& derHex) {
    const Bytes der = unhex(derHex);
    unsigned char text[200];
    const unsigned int size =
        Base64Encode(der.data(), static_cast<unsigned int>(der.size()), text, sizeof text);
    return "-----BEGIN " + label + "-----\n" + std::string(text, text + size) + "\n-----END " +
           label + "-----\n";
}

std::string edited(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(RsaKey, TakesPemAsToolsWriteIt) {
    const std::string pem = pemOf("PUBLIC KEY", publicKey);
    const std::string privatePem = pemOf("RSA PRIVATE KEY", pkcs1);
    const std::string encrypted =
        edited(privatePem, "MBs", "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00\n\nMBs");
    const std::string begin = "-----BEGIN PUBLIC KEY-----";
    const std::string end = "-----END PUBLIC KEY-----";
    const struct {
        const char* name;
        std::string text;
        std::string parts;
    } rows[] = {
        {"public", pem, publicParts},
        {"public, RSA", pemOf("RSA PUBLIC KEY", pkcs1Public), publicParts},
        {"private, RSA", privatePem, privateParts},
        {"private", pemOf("PRIVATE KEY", pkcs8), privateParts},
        {"private behind public", pem + privatePem, privateParts},
        {"damaged private behind good one", pemOf("PRIVATE KEY", pkcs8) + encrypted, privateParts},
        {"damaged private before public", encrypted + pem, ""},
        {"text before", "Key of a-b:\n-----\n" + pem, publicParts},
        {"other block before", edited(privatePem, "RSA PRIVATE", "EC") + pem, publicParts},
        {"text behind", pem + "more", publicParts},
        {"no last line feed", pem.substr(0, pem.size() - 1), publicParts},
        {"carriage returns", edited(edited(pem, "-\nM", "-\r\nM"), "DQ", "D\r\nQ"), publicParts},
        {"blanks", edited(edited(pem, "MBow", " M B\tow"), begin, begin + " "), publicParts},
        {"begin within a line", " " + pem, ""},
        {"text behind begin", edited(pem, begin, begin + "x"), ""},
        {"no begin", edited(pem, begin, ""), ""},
        {"no end", edited(pem, end, ""), ""},
        {"cut off in the end line", pem.substr(0, pem.size() - 2), ""},
        {"other end", edited(pem, end, "-----END RSA PUBLIC KEY-----"), ""},
        {"wrong form for the label", pemOf("PUBLIC KEY", pkcs1Public), ""},
        {"bad digit", edited(pem, "MBo", "M*o"), ""},
        {"digit beyond ASCII", edited(pem, "MBo", "M\xC6o"), ""},
        {"no padding", edited(pem, "Aw==", "Aw"), ""},
        {"half the padding", edited(pem, "Aw==", "Aw="), ""},
        {"padding inside", edited(pem, "MBow", "MB=="), ""},
        {"bits under the padding", edited(pem, "Aw==", "Ax=="), ""},
        {"nothing inside", begin + "\n" + end + "\n", ""},
        {"padding only", begin + "\n====\n" + end + "\n", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(readPem(row.text), row.parts) << row.name << "\n" << row.text;
    }
}

TEST(RsaKey, TakesOnlyDer) {
    const struct {
        const char* name;
        std::string der;
        std::string parts;
    } rows[] = {
        {"public", pkcs1Public, publicParts},
        {"sign byte", "300702020085020103", "85 03       "},
        {"private", pkcs1, privateParts},
        {"wrapped public", publicKey, publicParts},
        {"wrapped private", pkcs8, privateParts},
        {"attributes", "3035020100" + rsa + "041d" + pkcs1 + "a0023000", privateParts},
        {"two attributes", "3035020100" + rsa + "041d" + pkcs1 + "a000a000", ""},
        {"more than two primes", "301b020101" + numbers, ""},
        {"wrapped version 1", "3031020101" + rsa + "041d" + pkcs1, ""},
        {"a number too many", "301e020100" + numbers + "020101", ""},
        {"long length for a short one", "308106020105020103", ""},
        {"leading zero in a length", "30820006020105020103", ""},
        {"indefinite length", "30800201050201030000", ""},
        {"length of nine bytes", "3089010000000000000006020105020103", ""},
        {"length beyond all memory", "3088ffffffffffffffff020105020103", ""},
        {"inner length too long", "3006020105020203", ""},
        {"leading zero in a number", "300702020005020103", ""},
        {"negative number", "3006020185020103", ""},
        {"zero", "3006020100020103", ""},
        {"empty number", "30050200020103", ""},
        {"set instead of a sequence", "3106020105020103", ""},
        {"other algorithm", "301a300d06092a864886f70d01010205000309003006020105020103", ""},
        {"unused bits", "301a" + rsa + "0309013006020105020103", ""},
        {"empty bit string", "3011" + rsa + "0300", ""},
    };
    for (const auto& row : rows) {
        Bytes der = unhex(row.der);
        EXPECT_EQ(readDer(der), row.parts) << row.name;
        der.push_back(0);
        EXPECT_EQ(readDer(der), "") << row.name << ", a byte behind";
        for (der.pop_back(); !der.empty();) {
            der.pop_back();
            EXPECT_EQ(readDer(Bytes(der)), "") << row.name << ", cut to " << der.size();
        }
    }
}

} // namespace
