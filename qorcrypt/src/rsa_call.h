// What the operations of QorRsaKey have in common.
#pragma once

#include <initializer_list>

#include "rsa_core.h"

struct QorRsaKey::State : qorcrypt::RsaCore {};

namespace qorcrypt {

enum class KeyUse { isPublic, isPrivate };

// What can be said of a call before anything is calculated: the key has to be there, none of the
// pointers null, the input a block and the output room for one. A null core has no key.
inline QorRsaResult checkCall(const RsaCore* core, KeyUse use,
                              std::initializer_list<const void*> pointers, std::size_t inSize,
                              std::size_t outSize) {
    if (core == nullptr || (use == KeyUse::isPrivate && !core->isPrivate())) {
        return QorRsaResult::NoKey;
    }
    for (const void* pointer : pointers) {
        if (pointer == nullptr) {
            return QorRsaResult::BadArgument;
        }
    }
    return inSize == core->modulusSize() && outSize >= core->modulusSize()
               ? QorRsaResult::Ok
               : QorRsaResult::WrongLength;
}

// Data of size 0 may be null: this stands for them where null would mean that they are missing.
inline const void* dataOrEmpty(const unsigned char* data, std::size_t size) {
    return size == 0 ? "" : static_cast<const void*>(data);
}

} // namespace qorcrypt
