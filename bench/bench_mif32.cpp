// Building a message of mixed entries and reading each of them by its identifier, against msgpack-c
// and nanopb with the same keys and values. The entries come from a table of random records, so
// that no side knows types or sizes beforehand.
//
// Each read starts at the bytes of the message, with nothing kept from the read before. msgpack-c
// makes a tree of a whole message first: readMsgpackTree is given it once for all reads.
#include <benchmark/benchmark.h>

#include <msgpack.h>
#include <pb_decode.h>
#include <pb_encode.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "mif32.h"

namespace {

enum class Type { boolean, number, longNumber, text, binary };

struct Record {
    Type type;
    std::uint16_t id;
    std::uint64_t number;
    std::string bytes;
};

constexpr std::size_t longestValue = 40;

// Every identifier occurs once, and not in order.
using Records = std::vector<Record>;

const Records records = [] {
    std::mt19937_64 random(1);
    std::vector<std::uint16_t> ids(1000);
    std::iota(ids.begin(), ids.end(), std::uint16_t{0x4000});
    std::shuffle(ids.begin(), ids.end(), random);
    Records result(ids.size());
    for (Record& record : result) {
        record.type = static_cast<Type>(random() % 5);
        record.id = ids.back();
        ids.pop_back();
        record.number = random();
        record.bytes.assign(random() % longestValue, 'x');
    }
    return result;
}();

void add(Mif32& mif, const Record& record) {
    switch (record.type) {
    case Type::boolean:
        mif.AddBool(record.id, record.number % 2 != 0);
        break;
    case Type::number:
        mif.AddInt(record.id, static_cast<unsigned int>(record.number));
        break;
    case Type::longNumber:
        mif.AddInt64(record.id, record.number);
        break;
    case Type::text:
        mif.AddStr(record.id, record.bytes.c_str());
        break;
    case Type::binary:
        mif.AddBin(record.id, reinterpret_cast<const unsigned char*>(record.bytes.data()),
                   static_cast<unsigned int>(record.bytes.size()));
        break;
    }
}

void pack(msgpack_packer& packer, const Record& record) {
    msgpack_pack_uint16(&packer, record.id);
    switch (record.type) {
    case Type::boolean:
        record.number % 2 != 0 ? msgpack_pack_true(&packer) : msgpack_pack_false(&packer);
        break;
    case Type::number:
        msgpack_pack_uint32(&packer, static_cast<std::uint32_t>(record.number));
        break;
    case Type::longNumber:
        msgpack_pack_uint64(&packer, record.number);
        break;
    case Type::text:
        msgpack_pack_str_with_body(&packer, record.bytes.c_str(),
                                   std::strlen(record.bytes.c_str()));
        break;
    case Type::binary:
        msgpack_pack_bin_with_body(&packer, record.bytes.data(), record.bytes.size());
        break;
    }
}

Mif32 mif32Message(const Records& some) {
    Mif32 mif;
    for (const Record& record : some) {
        add(mif, record);
    }
    return mif;
}

void packAll(msgpack_sbuffer& buffer, const Records& some) {
    msgpack_packer packer;
    msgpack_packer_init(&packer, &buffer, msgpack_sbuffer_write);
    msgpack_pack_map(&packer, some.size());
    for (const Record& record : some) {
        pack(packer, record);
    }
}

void buildMif32(benchmark::State& state) {
    for (auto iteration : state) {
        const Mif32 mif = mif32Message(records);
        benchmark::DoNotOptimize(mif.GetData());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}

void buildMsgpack(benchmark::State& state) {
    for (auto iteration : state) {
        msgpack_sbuffer buffer;
        msgpack_sbuffer_init(&buffer);
        packAll(buffer, records);
        benchmark::DoNotOptimize(buffer.data);
        benchmark::ClobberMemory();
        msgpack_sbuffer_destroy(&buffer);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}

// ---- Reading ----

// Where a value goes that has been read.
struct Output {
    std::uint64_t number;
    unsigned char bytes[longestValue + 1];
};

bool read(const Mif32& mif, const Record& record, Output& out) {
    switch (record.type) {
    case Type::boolean: {
        bool truth = false;
        const bool found = mif.GetBool(record.id, &truth, 1);
        out.number = truth;
        return found;
    }
    case Type::number: {
        unsigned int number = 0;
        const bool found = mif.GetInt(record.id, &number, 1);
        out.number = number;
        return found;
    }
    case Type::longNumber: {
        unsigned long long number = 0;
        const bool found = mif.GetInt64(record.id, &number, 1);
        out.number = number;
        return found;
    }
    case Type::text:
        return mif.GetStr(record.id, reinterpret_cast<char*>(out.bytes), sizeof out.bytes, 1);
    case Type::binary: {
        unsigned int size = sizeof out.bytes;
        return mif.GetBin(record.id, out.bytes, &size, 1);
    }
    }
    return false;
}

// The library has no search in a map: its users compare the keys.
const msgpack_object* find(const msgpack_object_map& map, std::uint16_t id) {
    for (const msgpack_object_kv* each = map.ptr; each != map.ptr + map.size; ++each) {
        if (each->key.type == MSGPACK_OBJECT_POSITIVE_INTEGER && each->key.via.u64 == id) {
            return &each->val;
        }
    }
    return nullptr;
}

template <typename Bytes>
bool copyText(Output& out, const Bytes& bytes) {
    if (bytes.size >= sizeof out.bytes) {
        return false;
    }
    std::memcpy(out.bytes, bytes.ptr, bytes.size);
    out.bytes[bytes.size] = '\0';
    return true;
}

bool read(const msgpack_object_map& map, const Record& record, Output& out) {
    const msgpack_object* const value = find(map, record.id);
    if (value == nullptr) {
        return false;
    }
    switch (value->type) {
    case MSGPACK_OBJECT_BOOLEAN:
        out.number = value->via.boolean;
        return true;
    case MSGPACK_OBJECT_POSITIVE_INTEGER:
        out.number = value->via.u64;
        return true;
    case MSGPACK_OBJECT_STR:
        return copyText(out, value->via.str);
    case MSGPACK_OBJECT_BIN:
        return copyText(out, value->via.bin);
    default:
        return false;
    }
}

// A message of nanopb is read field by field, with its functions for a stream.
bool read(pb_istream_t stream, const Record& record, Output& out) {
    pb_wire_type_t type{};
    std::uint32_t tag = 0;
    bool end = false;
    while (pb_decode_tag(&stream, &type, &tag, &end)) {
        if (tag != record.id) {
            if (!pb_skip_field(&stream, type)) {
                return false;
            }
        } else if (type == PB_WT_VARINT) {
            return pb_decode_varint(&stream, &out.number);
        } else {
            std::uint32_t size = 0;
            if (!pb_decode_varint32(&stream, &size) || size >= sizeof out.bytes) {
                return false;
            }
            out.bytes[size] = '\0';
            return pb_read(&stream, out.bytes, size);
        }
    }
    return false;
}

bool encode(pb_ostream_t& stream, const Record& record) {
    const bool isText = record.type == Type::text || record.type == Type::binary;
    if (isText) {
        return pb_encode_tag(&stream, PB_WT_STRING, record.id) &&
               pb_encode_string(&stream, reinterpret_cast<const pb_byte_t*>(record.bytes.data()),
                                record.bytes.size());
    }
    const std::uint64_t masks[] = {1, 0xFFFFFFFF, ~std::uint64_t{0}};
    return pb_encode_tag(&stream, PB_WT_VARINT, record.id) &&
           pb_encode_varint(&stream, record.number & masks[static_cast<int>(record.type)]);
}

template <typename Source>
void readAll(benchmark::State& state, const Source& source, const Records& some) {
    Output out;
    for (const Record& record : some) {
        if (!read(source, record, out)) {
            state.SkipWithError("an entry was not found");
        }
        benchmark::DoNotOptimize(out);
    }
}

Records someRecords(const benchmark::State& state) {
    return {records.begin(), records.begin() + state.range(0)};
}

void readMif32(benchmark::State& state) {
    const Records some = someRecords(state);
    const Mif32 mif = mif32Message(some);
    for (auto iteration : state) {
        readAll(state, mif, some);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void readNanopb(benchmark::State& state) {
    const Records some = someRecords(state);
    std::vector<pb_byte_t> buffer(100000);
    pb_ostream_t encoded = pb_ostream_from_buffer(buffer.data(), buffer.size());
    for (const Record& record : some) {
        if (!encode(encoded, record)) {
            state.SkipWithError("an entry could not be written");
        }
    }
    for (auto iteration : state) {
        readAll(state, pb_istream_from_buffer(buffer.data(), encoded.bytes_written), some);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// A message of msgpack-c as bytes.
struct Packed {
    msgpack_sbuffer buffer;

    explicit Packed(const Records& some) {
        msgpack_sbuffer_init(&buffer);
        packAll(buffer, some);
    }
    ~Packed() {
        msgpack_sbuffer_destroy(&buffer);
    }
    Packed(const Packed&) = delete;
    Packed& operator=(const Packed&) = delete;
};

struct Tree {
    msgpack_unpacked unpacked;

    explicit Tree(const Packed& message) {
        msgpack_unpacked_init(&unpacked);
        msgpack_unpack_next(&unpacked, message.buffer.data, message.buffer.size, nullptr);
    }
    ~Tree() {
        msgpack_unpacked_destroy(&unpacked);
    }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
};

bool read(const Tree& tree, const Record& record, Output& out) {
    return read(tree.unpacked.data.via.map, record, out);
}

bool read(const Packed& message, const Record& record, Output& out) {
    return read(Tree(message), record, out);
}

void readMsgpack(benchmark::State& state) {
    const Records some = someRecords(state);
    const Packed message(some);
    for (auto iteration : state) {
        readAll(state, message, some);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void readMsgpackTree(benchmark::State& state) {
    const Records some = someRecords(state);
    const Packed message(some);
    for (auto iteration : state) {
        readAll(state, Tree(message), some);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// ---- The walk ----

// A message of ordinary entries, of 8 to 64 bytes with their headers.
Mif32 ordinaryMessage(std::size_t size) {
    std::mt19937_64 random(2);
    const unsigned char value[60] = {};
    Mif32 mif;
    while (mif.GetLen() < size) {
        mif.AddBin(1, value, static_cast<unsigned int>(4 + random() % 57));
    }
    return mif;
}

void walkMif32(benchmark::State& state) {
    const Mif32 mif = ordinaryMessage(static_cast<std::size_t>(state.range(0)));
    for (auto iteration : state) {
        benchmark::DoNotOptimize(mif.SearchValue(2, nullptr, 1));
    }
    state.SetBytesProcessed(state.iterations() * mif.GetLen());
}

void walkMemchr(benchmark::State& state) {
    const Mif32 mif = ordinaryMessage(static_cast<std::size_t>(state.range(0)));
    for (auto iteration : state) {
        benchmark::DoNotOptimize(std::memchr(mif.GetData(), 0xFF, mif.GetLen()));
    }
    state.SetBytesProcessed(state.iterations() * mif.GetLen());
}

BENCHMARK(buildMif32);
BENCHMARK(buildMsgpack);
BENCHMARK(readMif32)->Arg(20)->Arg(1000);
BENCHMARK(readNanopb)->Arg(20)->Arg(1000);
BENCHMARK(readMsgpack)->Arg(20)->Arg(1000);
BENCHMARK(readMsgpackTree)->Arg(20)->Arg(1000);
BENCHMARK(walkMif32)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 26);
BENCHMARK(walkMemchr)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 26);

} // namespace

BENCHMARK_MAIN();
