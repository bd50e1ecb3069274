/**
 * @file qorcrypto_rsa.h
 * QorRsaKey: RSA with a public or a private key; raw, and with the padding of PKCS#1 v1.5 (RFC
 * 8017, sections 7.2, 8.2 and 9.2; block types 1 and 2 of RFC 2313, section 8.1).
 *
 * What this is still fit for: talking to partners, and reading data, that know nothing newer.
 *
 * - Block type 2 (encryption) tells an attacker a little each time he learns whether the padding of
 *   a ciphertext of his was right, be it by an error, by timing, or by what happens next; some
 *   thousand to a million such answers decrypt any message and sign any block (Bleichenbacher
 *   1998). DecryptType2 tells it by its very result: use it only where nobody who can send
 *   ciphertexts sees what becomes of them, as with data at rest. In a protocol use
 *   DecryptType2OrRandom, and go on with the bytes that it gives whatever they are. New designs
 *   take OAEP or a key agreement, which this library does not offer.
 * - Block type 1 (signature) has no known attack where, as here, the whole block is compared. SHA-1
 *   below it has: whoever may choose parts of what is signed makes two documents with one digest.
 *   SignSha1 and VerifySha1 are for existing signatures over data that no attacker shaped.
 * - Raw operations protect nothing by themselves. They are for building other paddings.
 * - Keys below 2,048 bits are taken, for old data, and should not be made any more.
 *
 * Private operations take a time that does not depend on the key's secret numbers nor on the
 * message: arithmetic of fixed length, no branch and no address that a secret decides. The message
 * is blinded; with the numbers of the Chinese remainder theorem the work is split between the
 * primes, and each result is checked by the public exponent before it leaves, so that a
 * miscalculation can't give the primes away. What is not hidden: sizes in bits, and the results
 * themselves.
 *
 * Threads: any number of threads may use one key at a time through the const members. Setting,
 * moving and clearing it needs it alone. A child process may go on with its parent's keys, even
 * where other threads were using them at the fork. Memory that held secrets is overwritten before
 * it is given up; single machine words that the compiler has put aside are not. Nothing throws or
 * aborts: every failure is a result. No operation's output may overlap its inputs, except that
 * PublicRaw and PrivateRaw also work in place.
 */
#pragma once

#include "qorapi.h"

#include <cstddef>

/** What an operation came to. */
enum class QorRsaResult : int {
    Ok = 0,
    BadArgument,     /**< a null pointer where bytes are needed */
    NoKey,           /**< no key is set, or a public one where a private one is needed */
    BadKey,          /**< the key's numbers are no RSA key or disagree, see SetPublic, SetPrivate */
    BadEncoding,     /**< not the DER or the PEM text of a key that is known here */
    WrongLength,     /**< an input or a buffer has not the size that the operation needs */
    MessageTooLarge, /**< a number not below the modulus, or data too long for the padding */
    BadPadding,      /**< a decrypted or recovered block is not padded as it should be */
    BadSignature,    /**< the signature is not the data's */
    Fault,           /**< a private result failed its check; it did not leave */
    NoRandom,        /**< the system gave no random bytes */
    NoMemory         /**< memory is short */
};

/** A big-endian unsigned number in the caller's memory; leading zeros are allowed. */
struct QorRsaNumber {
    const unsigned char* bytes; /**< the highest first */
    std::size_t size; /**< in bytes; 0 where the number is missing, and `bytes` is not read then */
};

/** The numbers of a private key, named as in RFC 8017, section 3.2. */
struct QorRsaPrivateNumbers {
    QorRsaNumber n; /**< modulus, p * q */
    QorRsaNumber e; /**< public exponent */
    QorRsaNumber d; /**< private exponent */
    // All five of these, or none of them (slower then).
    QorRsaNumber p;    /**< one prime */
    QorRsaNumber q;    /**< the other prime */
    QorRsaNumber dp;   /**< d mod (p - 1) */
    QorRsaNumber dq;   /**< d mod (q - 1) */
    QorRsaNumber qinv; /**< q^-1 mod p */
};

/** One key. Its size k is that of the modulus in bytes, see ModulusSize. */
class QOR_API QorRsaKey {
public:
    /** The smallest modulus, in bits. */
    static constexpr std::size_t MinBits = 512;
    /** The largest modulus, in bits. */
    static constexpr std::size_t MaxBits = 16384;
    /** The largest public exponent, in bits: one beyond any in use would only make verifying slow.
     */
    static constexpr std::size_t MaxExponentBits = 64;
    /** What the padding takes of a block, at the least, in bytes. */
    static constexpr std::size_t PaddingSize = 11;

    /** No key. */
    QorRsaKey() noexcept;
    /** Wipes and frees. */
    ~QorRsaKey();
    /** Takes the key over; the other one has none then. */
    QorRsaKey(QorRsaKey&& other) noexcept;
    /** The same; the key that was here is wiped. */
    QorRsaKey& operator=(QorRsaKey&& other) noexcept;
    QorRsaKey(const QorRsaKey&) = delete;
    QorRsaKey& operator=(const QorRsaKey&) = delete;

    // Set: on any failure the key that was set before stays.

    /** NoKey where the other one has none; otherwise Ok or NoMemory. */
    QorRsaResult CopyFrom(const QorRsaKey& other);
    /**
     * Sets a public key. BadKey unless n is odd and has MinBits to MaxBits bits, and e is odd,
     * above 1, and has at most MaxExponentBits bits.
     */
    QorRsaResult SetPublic(const QorRsaNumber& n, const QorRsaNumber& e);
    /**
     * Sets a private key, which is a public key as well. BadKey also unless d is odd and below n
     * and, where the primes are there, p * q = n, e * d = 1 modulo p - 1 and q - 1, and dp, dq,
     * qinv are what their names say. That p and q are prime is not tested as such; a random number
     * is raised to e and d, and must come back, for any private key. Setting one thus costs as much
     * as a private operation; NoRandom where the system has no random bytes for it.
     */
    QorRsaResult SetPrivate(const QorRsaPrivateNumbers& numbers);
    /**
     * Sets an unencrypted key from `size` bytes of DER: RSAPrivateKey with two primes or
     * RSAPublicKey (RFC 8017, appendix A.1), or one of them within PrivateKeyInfo (RFC 5208) or
     * SubjectPublicKeyInfo (RFC 5280). BadEncoding for anything else, and SetPrivate's or
     * SetPublic's results for the numbers.
     */
    QorRsaResult LoadDer(const unsigned char* der, std::size_t size);
    /** The same from a PEM text (RFC 7468) of `size` characters: the first "RSA PRIVATE KEY" or
     * "PRIVATE KEY" in it; where there is none, the first "RSA PUBLIC KEY" or "PUBLIC KEY". Where
     * that one is damaged or encrypted, no other is looked for: BadEncoding. */
    QorRsaResult LoadPem(const char* text, std::size_t size);
    /** Wipes the key; none is set then. */
    void Clear();

    // Ask.

    /** True where a private key is set. */
    bool IsPrivate() const;
    /** The size of the modulus in bits; 0 without a key. */
    std::size_t ModulusBits() const;
    /** The size k of the modulus in bytes, which is that of every block; 0 without a key. */
    std::size_t ModulusSize() const;

    // Raw.

    /**
     * m^e mod n. `inSize` has to be k, `outSize` at least k, of which the first k bytes are
     * written. MessageTooLarge unless the number is below the modulus. On failure, here and below,
     * `out` holds nothing secret: what it held before, or zeros.
     */
    QorRsaResult PublicRaw(const unsigned char* in, std::size_t inSize, unsigned char* out,
                           std::size_t outSize) const;
    /** c^d mod n, otherwise the same. */
    QorRsaResult PrivateRaw(const unsigned char* in, std::size_t inSize, unsigned char* out,
                            std::size_t outSize) const;

    // Block type 1: sign, verify, recover.

    /** Pads `size` bytes, at most k - PaddingSize, and applies the private key: k bytes of `out`,
     * which `outSize` has to have room for. */
    QorRsaResult SignType1(const unsigned char* data, std::size_t size, unsigned char* out,
                           std::size_t outSize) const;
    /** Ok where the signature, of k bytes, is that of the data: the block that it ought to give is
     * built and compared as a whole. */
    QorRsaResult VerifyType1(const unsigned char* data, std::size_t size,
                             const unsigned char* signature, std::size_t signatureSize) const;
    /**
     * Applies the public key and takes the data out of the padding, for data that the verifier does
     * not know. To compare them with known ones, VerifyType1 is safer.
     * @param outSize at least the size of the data, for which k - PaddingSize is always enough
     * @param dataSize receives that size; 0 on failure
     */
    QorRsaResult RecoverType1(const unsigned char* signature, std::size_t signatureSize,
                              unsigned char* out, std::size_t outSize, std::size_t* dataSize) const;
    /** Signs a SHA-1 digest of 20 bytes with its DigestInfo (RFC 8017, section 9.2): k bytes of
     * `out`, too. */
    QorRsaResult SignSha1(const unsigned char digest[20], unsigned char* out,
                          std::size_t outSize) const;
    /** Verifies such a signature as VerifyType1 does. */
    QorRsaResult VerifySha1(const unsigned char digest[20], const unsigned char* signature,
                            std::size_t signatureSize) const;

    // Block type 2: encrypt, decrypt; mind the warning above.

    /** Pads `size` bytes, at most k - PaddingSize, and applies the public key: k bytes of `out`,
     * which `outSize` has to have room for. */
    QorRsaResult EncryptType2(const unsigned char* data, std::size_t size, unsigned char* out,
                              std::size_t outSize) const;
    /**
     * Applies the private key and takes the data out of the padding, in a time that depends on
     * neither. Its result says whether the padding was right.
     * @param outSize at least k - PaddingSize, whatever the size of the data
     * @param dataSize receives the size of the data; 0 on failure
     */
    QorRsaResult DecryptType2(const unsigned char* in, std::size_t inSize, unsigned char* out,
                              std::size_t outSize, std::size_t* dataSize) const;
    /**
     * The same for data of a known size, as keys have one: where the padding is wrong, or the data
     * have another size, `out` receives `dataSize` random bytes, the result is Ok, and neither the
     * result nor the time tells the difference. Other results depend on what anyone can see.
     * The random bytes are others with each call: whoever may send a ciphertext twice must not
     * learn whether the same bytes came of it.
     * @param dataSize at most k - PaddingSize, which `out` has room for
     */
    QorRsaResult DecryptType2OrRandom(const unsigned char* in, std::size_t inSize,
                                      unsigned char* out, std::size_t dataSize) const;

private:
    struct State;

    // Sets what `load` makes of a new state, if it succeeds.
    template <typename Load>
    QOR_LOCAL QorRsaResult replace(Load load);

    State* state;
};
