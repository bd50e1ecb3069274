/**
 * @file qorcrypto.h
 * The cryptographic primitives: big numbers, RSA with PKCS#1 v1.5, SHA-1, random bytes. Each family
 * has its own header; this one includes them all.
 */
#pragma once

#include "qorcrypto_bignum.h"
#include "qorcrypto_random.h"
#include "qorcrypto_rsa.h"
#include "qorcrypto_sha1.h"
