// A message as it may come from anywhere through every reader, of a Mif32 and of raw bytes, which
// have to agree, and then through the operations that change it.
//
// The first four bytes of the input say what is looked for: the identifier, the occurrence and the
// size of the outputs. The rest is the message.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "mif32.h"
#include "qoripaddr.h"
#include "qormif.h"
#include "require.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct Wanted {
    unsigned short id;
    unsigned int occurrence;
    unsigned int room;
};

unsigned int sizeOf(const Bytes& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

void checkTexts(const Mif32& mif, const Bytes& message, const Wanted& wanted, bool fits) {
    const unsigned short room = static_cast<unsigned short>(wanted.room);
    const std::unique_ptr<char[]> text(new char[wanted.room]);
    const std::unique_ptr<char[]> same(new char[wanted.room]);
    require(mif.GetStr(wanted.id, text.get(), room, wanted.occurrence) == fits);
    require((qormifGetStr(message.data(), sizeOf(message), wanted.id, same.get(), wanted.room,
                          wanted.occurrence) != 0) == fits);
    std::string whole;
    require(!fits || mif.GetStr(wanted.id, &whole, wanted.occurrence));
    require(!fits || (whole == text.get() && whole == same.get()));
    for (const bool asIpV4 : {false, true}) {
        qormifGetRangeValuesAsString(message.data(), sizeOf(message), wanted.id, same.get(),
                                     wanted.room, asIpV4);
    }
}

void checkBytes(const Mif32& mif, const Bytes& message, const Wanted& wanted, bool found,
                unsigned int length) {
    Bytes out(wanted.room);
    unsigned int size = wanted.room;
    require(mif.GetBin(wanted.id, out.data(), &size, wanted.occurrence) ==
            (found && length <= wanted.room));
    size = wanted.room;
    qormifGetBinData(message.data(), sizeOf(message), wanted.id, out.data(), &size,
                     wanted.occurrence);
    unsigned char* value = nullptr;
    require(mif.GetBinPtr(wanted.id, &value, &size, wanted.occurrence) == found);
    require(!found || Bytes(value, value + size).size() == length);
    require((qormifGetBinDataPtr(message.data(), sizeOf(message), wanted.id, &value, &size,
                                 wanted.occurrence) != 0) == found);
}

void checkNumbers(const Mif32& mif, const Bytes& message, const Wanted& wanted, bool found,
                  unsigned int length) {
    unsigned int number = 0;
    unsigned int same = 0;
    const bool isInt = mif.GetInt(wanted.id, &number, wanted.occurrence);
    require(isInt == (found && length == 4));
    require((qormifGetInt(message.data(), sizeOf(message), wanted.id, &same, wanted.occurrence) !=
             0) == isInt);
    require(number == same);
    unsigned long long longNumber = 0;
    unsigned long long sameLong = 0;
    mif.GetInt64(wanted.id, &longNumber, wanted.occurrence);
    qormifGetInt64(message.data(), sizeOf(message), wanted.id, &sameLong, wanted.occurrence);
    require(longNumber == sameLong && (!isInt || longNumber == number));
    QorIpAddr address;
    require((qormifGetIpAddrV4(message.data(), sizeOf(message), wanted.id, &address,
                               wanted.occurrence) != 0) == isInt);
    require(address.GetIpV4Addr() == number);
    qormifGetIpAddr(message.data(), sizeOf(message), wanted.id, &address, wanted.occurrence);
}

void checkReaders(const Mif32& mif, const Bytes& message, const Wanted& wanted) {
    unsigned int offset = 0;
    unsigned int length = 0;
    const bool found = mif.Seek(wanted.id, &offset, &length, wanted.occurrence);
    require(!found || (offset >= 4 && offset + length <= message.size()));
    checkTexts(mif, message, wanted, found && length < wanted.room);
    checkBytes(mif, message, wanted, found, length);
    checkNumbers(mif, message, wanted, found, length);
}

// What was updated reads back; what was deleted is one less.
void checkUpdates(Mif32& mif, const Wanted& wanted) {
    const Bytes value(wanted.room, 0x5A);
    unsigned int length = 0;
    if (mif.UpdBin(wanted.id, value.data(), static_cast<unsigned short>(wanted.room),
                   wanted.occurrence)) {
        require(mif.SearchValue(wanted.id, &length, wanted.occurrence) && length == wanted.room);
    }
    unsigned int number = 0;
    if (mif.UpdInt64(wanted.id, 1, 1)) {
        require(mif.GetInt(wanted.id, &number, 1) && number == 1);
    }
    mif.UpdInt64(wanted.id, 1ULL << 32, wanted.occurrence);
    mif.UpdInt(wanted.id, 2, wanted.occurrence);
    const unsigned int before = mif.GetLen();
    if (mif.SearchValue(wanted.id, &length, 1)) {
        require(mif.DelOid(wanted.id) && mif.GetLen() == before - 4 - length);
    }
    require(mif.GetLen() <= mif.GetAllocLen());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 5) {
        return 0;
    }
    const Wanted wanted = {static_cast<unsigned short>(data[0] | data[1] << 8), data[2],
                           data[3] + 1U};
    Bytes message(data + 4, data + size);
    message.shrink_to_fit();
    Mif32 mif(message.data(), sizeOf(message));
    checkReaders(mif, message, wanted);
    checkUpdates(mif, wanted);

    Bytes memory = message;
    memory.shrink_to_fit();
    qormifUpdInt(memory.data(), sizeOf(memory), wanted.id, 7, wanted.occurrence);
    // In external memory, whole and with a length that goes beyond it.
    for (const unsigned int used : {sizeOf(memory), 0xFFFFFFFFU}) {
        mif.SetExternalMem(memory.data(), sizeOf(memory), used);
        unsigned int length = 0;
        require(!mif.SearchValue(wanted.id, &length, wanted.occurrence) ||
                length + 4 <= memory.size());
        mif.UpdInt(wanted.id, 3, wanted.occurrence);
        mif.UpdBin(wanted.id, memory.data(), static_cast<unsigned short>(wanted.room % 8),
                   wanted.occurrence);
        mif.DelOid(wanted.id);
    }
    return 0;
}
